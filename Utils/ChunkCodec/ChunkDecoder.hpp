// Undoes HDF5's filters for one chunk as H5Dread_chunk delivers it, whoever wrote it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "Utils/ChunkCodec/Filters.hpp"

#pragma GCC visibility push(default)

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

/// How the chunks of a dataset are stored. The filters are lent.
struct ChunkFormat {
  const Filters& mFilters;  // deflate, shuffle and Fletcher-32 in any order, deflate at most once
  std::size_t mChunkBytes;  // of a chunk without filters
  std::size_t mElementBytes;
};

/// Decodes one chunk and hands out its elements. A shuffle that was the first filter is undone only
/// for the elements that are taken, on the way to where they go.
class ChunkDecoder {
 public:
  /// Undoes the filters, but for those whose bit in `skipped` is set: the lowest bit is that of the
  /// first filter. Bytes after the end of a compressed stream are taken no notice of, as by HDF5.
  /// Damaged bytes are a status, never an exception. The stored bytes are lent for as long as
  /// elements are taken. With deflate the decoder has one chunk of memory, but never more than
  /// could have been compressed to the bytes there are.
  [[nodiscard]] DecodeStatus Decode(std::span<const std::byte> stored, const ChunkFormat& format,
                                    std::uint32_t skipped = 0);

  /// Copies as many elements as there is room for, from the chunk's `first`-th on. Only after
  /// Decode() returned Ok.
  void Take(std::size_t first, std::span<std::byte> elements) const;

 private:
  DecodeStatus StripChecksum();
  DecodeStatus Inflate(std::size_t inflatedBytes);
  DecodeStatus UnshuffleAll(std::size_t elementBytes);

  std::span<const std::byte> mBytes;  // lent, or those at mpOwnBytes
  std::unique_ptr<std::byte[]> mpOwnBytes;
  std::size_t mElementBytes = 1;
  bool mIsShuffled = false;
};

}  // namespace ChunkCodec

#pragma GCC visibility pop
