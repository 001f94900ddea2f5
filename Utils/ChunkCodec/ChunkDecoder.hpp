// Undoes HDF5's filters for one chunk as H5Dread_chunk delivers it, whoever wrote it.
#pragma once

#include <cstddef>
#include <span>

#include "Utils/ChunkCodec/Filters.hpp"

namespace ChunkCodec {

enum class DecodeStatus {
  Ok,
  WrongChecksum,  // of Fletcher-32, or of the compressed stream
  ShortStream,    // the bytes end before the stream, or before the checksum
  CorruptStream,  // not deflated data in the zlib format
  TooFewValues,   // all is well formed, but makes less than a chunk
  TooManyValues,  // or more
  TrailingData    // bytes follow the end of the compressed stream
};

/// "wrong checksum", "short stream", "corrupt stream", "too few values", "too many values",
/// "trailing data"; "ok".
const char* Describe(DecodeStatus status);

/// Fills `values`, the whole chunk, from its stored bytes; no filter may have been skipped (filter
/// mask 0). Damaged bytes are a status, never an exception, and `values` is then undefined. Needs,
/// with deflate and shuffle both, one further chunk of memory while it runs.
[[nodiscard]] DecodeStatus DecodeChunk(std::span<const std::byte> stored, const Filters& filters,
                                       std::span<double> values);

}  // namespace ChunkCodec
