// Undoes HDF5's filters for one chunk as H5Dread_chunk delivers it, whoever wrote it.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "Utils/ChunkCodec/Filters.hpp"

namespace ChunkCodec {

enum class DecodeStatus {
  Ok,
  WrongChecksum,  // of Fletcher-32, or of the compressed stream
  ShortStream,    // the bytes end before the stream, or before the checksum
  CorruptStream,  // not deflated data in the zlib format
  TooFewValues,   // all is well formed, but makes less than a chunk
  TooManyValues   // or more
};

/// "wrong checksum", "short stream", "corrupt stream", "too few values", "too many values";
/// "ok".
const char* Describe(DecodeStatus status);

/// Where values of a chunk go: `mValues` receives those from the chunk's mFirst-th on.
struct ChunkPart {
  std::size_t mFirst = 0;
  std::span<double> mValues;
};

/// Decodes the stored bytes of a chunk of `chunkValues` values, of which the parts, in ascending
/// order, are wanted; no filter may have been skipped (filter mask 0). Bytes after the end of a
/// compressed stream are taken no notice of, as by HDF5. Damaged bytes are a status, never an
/// exception, and the parts' values are then undefined. Needs, with deflate, one further chunk of
/// memory while it runs, unless there is no shuffle and the whole chunk is wanted.
[[nodiscard]] DecodeStatus DecodeChunk(std::span<const std::byte> stored, const Filters& filters,
                                       std::size_t chunkValues, std::span<const ChunkPart> parts);

/// Decodes all values of a chunk.
[[nodiscard]] DecodeStatus DecodeChunk(std::span<const std::byte> stored, const Filters& filters,
                                       std::span<double> values);

/// A filter that a chunk went through; those of HDF5 may come in any order.
struct FilterStep {
  enum class Kind { Shuffle, Deflate, Fletcher32 };
  Kind mKind;
  std::size_t mElementBytes = 1;  // that shuffle took apart
};

/// Undoes all the steps, the last first, for a chunk of elements of any type, which has
/// `chunkBytes` bytes without filters. Deflate may be among the steps once. Makes room for no more
/// than deflate could have compressed to the bytes there are. What is in `bytes` after a failure is
/// undefined.
[[nodiscard]] DecodeStatus UndoFilters(std::vector<std::byte>& bytes,
                                       std::span<const FilterStep> steps, std::size_t chunkBytes);

}  // namespace ChunkCodec
