// Filters a chunk of few values, which a simulation writes again and again while it fills.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "Utils/ChunkCodec/Filters.hpp"

namespace ChunkCodec {

/// The longest chunk for which EncodeShortChunk() is meant. Up to here EncodeChunk(), whose blocks
/// need headers of their own, makes some percent more bytes, and takes as long.
inline constexpr std::size_t sMostValuesOfShortChunk = 512;

/// Filters a full chunk, by zlib at level 1. The result is at most 2 % longer than that of
/// HDF5's own filters, and hardly ever as much.
/// Throws std::bad_alloc where zlib has no memory.
std::vector<std::byte> EncodeShortChunk(std::span<const double> values, const Filters& filters);

}  // namespace ChunkCodec
