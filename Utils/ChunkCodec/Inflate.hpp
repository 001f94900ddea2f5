// Inflates a stream of the zlib format (RFC 1950) whose inflated size is known.
#pragma once

#include <cstddef>
#include <span>

#include "Utils/ChunkCodec/ChunkDecoder.hpp"

namespace ChunkCodec {

/// Fills `out`, which the stream must fill exactly and end with. Writes nowhere else, whatever the
/// stream holds.
DecodeStatus Inflate(std::span<const std::byte> stream, std::span<std::byte> out);

}  // namespace ChunkCodec
