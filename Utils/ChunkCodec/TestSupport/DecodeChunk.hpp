// For tests: a chunk of doubles decoded at once, as the reader of tables does it by pieces.
#pragma once

#include <span>

#include "Utils/ChunkCodec/ChunkDecoder.hpp"

namespace ChunkCodec {

[[nodiscard]] inline DecodeStatus DecodeChunk(std::span<const std::byte> stored,
                                              const Filters& filters, std::span<double> values) {
  ChunkDecoder decoder;
  const DecodeStatus status =
      decoder.Decode(stored, {filters, values.size_bytes(), sizeof(double)});
  if (status == DecodeStatus::Ok) {
    decoder.Take(0, std::as_writable_bytes(values));
  }
  return status;
}

}  // namespace ChunkCodec
