// The one way in for chunks: the library finds them and hands out what is stored (H5Dread_chunk),
// and our own codec undoes the filters. From a damaged chunk that makes less than it should, the
// library (1.10.8, tried) goes on with memory that nobody wrote into; and it makes room for
// whatever a compressed stream says it holds.
#pragma once

#include <hdf5.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "Utils/ChunkCodec/ChunkDecoder.hpp"
#include "Utils/Tables/Columns.hpp"
#include "Utils/Tables/Target.hpp"

#pragma GCC visibility push(default)

namespace Tables {

class PendingReads;

/// A chunk as it is stored.
struct StoredChunk {
  std::uint64_t mRow = 0;  // of its first row
  std::uint64_t mColumn = 0;
  std::unique_ptr<std::byte[]> mpBytes;  // null if the chunk was never written
  std::size_t mSize = 0;
  std::uint32_t mSkipped = 0;  // the filters that it did not pass, a bit for each
};

/// Fetches chunks of an open dataset of any type and rank, whose filters are known here (see
/// RequireKnownFilters). Everything is lent.
struct ChunkReader {
  /// Fetches the chunk that begins at this place. `isPlain` says that it passed no filters,
  /// whatever it says itself. Fails on one that is too long to be sound, with its size in the
  /// report if `tellsSize`.
  StoredChunk Fetch(std::span<const hsize_t> offset, bool isPlain, bool tellsSize) const;

  hid_t mDataset_id;
  const std::string& mName;
  const Trace& mTrace;
  const ChunkCodec::ChunkFormat& mFormat;
};

/// What reports about damaged chunks end in.
inline constexpr std::string_view sSalvageAdvice =
    ". 'KelmorInfo -salvage' makes a file of what is before it";

/// Fails unless a chunk was decoded: "H5Dread failed for name=<name>: damaged chunk at row ...".
void RequireDecoded(ChunkCodec::DecodeStatus status, const std::string& name,
                    const StoredChunk& chunk);

/// The format of a table's chunks, which lends its filters.
ChunkCodec::ChunkFormat FormatOf(const TableLayout& layout);

/// Starts to read what is wanted of a table with filters. Chunks that were never written are read
/// through the library, at once.
void StartReadingChunks(const OpenTable& table, Target target, PendingReads& reads);

/// Fails unless an open dataset can hold the `claimed` bytes (see RequirePlausibleStorage), and all
/// of its chunks are whole.
void RequireSoundStorage(hid_t dataset_id, long double claimed, const std::string& name);

}  // namespace Tables

#pragma GCC visibility pop
