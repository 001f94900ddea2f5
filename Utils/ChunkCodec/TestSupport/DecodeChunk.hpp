// For tests: chunks of doubles, and one decoded at once, as the reader of tables does it by pieces.
#pragma once

#include <algorithm>
#include <span>

#include "Utils/ChunkCodec/ChunkDecoder.hpp"

namespace ChunkCodec {

/// A bit each for shuffle, deflate and Fletcher-32, from the lowest on.
inline Filters FiltersOfBits(unsigned bits) {
  return FiltersOfDoubles((bits & 1) != 0, (bits & 2) != 0, (bits & 4) != 0);
}

/// Bits, not values: a NaN equals nothing, and 0.0 equals -0.0.
inline bool AreSameBits(std::span<const double> a, std::span<const double> b) {
  return std::ranges::equal(std::as_bytes(a), std::as_bytes(b));
}

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
