#include "Utils/Tables/Chunks.hpp"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/Tables/Storage.hpp"

namespace Tables {

#if H5_VERSION_GE(1, 10, 3)

namespace {

// The filters that a chunk went through. A bit of its mask says that the dataset's first, second or
// third filter was skipped. Left to the library, a chunk that makes less than it should is filled
// up with memory that nobody wrote into.
ChunkCodec::Filters WithoutSkipped(ChunkCodec::Filters filters, std::uint32_t filterMask) {
  for (bool* isUsed : {&filters.mShuffle, &filters.mDeflate, &filters.mFletcher32}) {
    if (*isUsed) {
      *isUsed = (filterMask & 1) == 0;
      filterMask >>= 1;
    }
  }
  return filters;
}

// The library takes elements of the stored size apart, whatever the size of the type.
bool IsTakenByCodec(const Filter& filter) {
  return filter.HasItsParameters() &&
         (filter.mNumber != H5Z_FILTER_SHUFFLE || filter.mParameter == sizeof(double));
}

// Fetches what is stored of the chunk that begins at the given place. There is nothing if the
// library has to read it.
StoredChunk FetchChunk(const OpenTable& table, std::uint64_t row, std::uint64_t column) {
  StoredChunk chunk;
  chunk.mRow = row;
  chunk.mColumn = column;
  const hsize_t offset[2] = {row, column};
  hsize_t size = 0;
  {
    // Fails on a chunk that was never written, which reads as the fill value.
    const Vexa_H5::MuteH5Errors muted;
    const herr_t ignored =
        table.mTrace(5, H5Dget_chunk_storage_size(table.mDataset_id, offset, &size),
                     "H5Dget_chunk_storage_size(", table.mDataset_id, ", ...)");
    size = ignored < 0 ? 0 : size;
  }
  // No encoder makes a chunk much larger than it was. The library would inflate whatever there is.
  const std::uint64_t mostBytes = 2 * sizeof(double) * table.mLayout.mChunkRows + 65536;
  REQUIRE_FOR_CALLER(size<=mostBytes, "H5Dread failed for name=" << table.mName
                                                       << ": damaged chunk at row " << row
                                                       << " of column " << column << ": " << size
                                                       << " bytes are stored");
  if (size == 0) {
    return chunk;
  }
  chunk.mpBytes = std::make_unique_for_overwrite<std::byte[]>(size);
  chunk.mSize = size;
  std::uint32_t filterMask = 0;
  const herr_t err = table.mTrace(
      4, H5Dread_chunk(table.mDataset_id, H5P_DEFAULT, offset, &filterMask, chunk.mpBytes.get()),
      "H5Dread_chunk(", table.mDataset_id, ", ...)");
  REQUIRE_FOR_CALLER(err>=0, "H5Dread_chunk failed for name=" << table.mName);
  chunk.mFilters = WithoutSkipped(table.mLayout.mFilters, filterMask);
  return chunk;
}

}  // namespace

bool CanMoveChunks(hid_t type_id, hid_t cparms_id, ChunkCodec::Filters& filters) {
  unsigned chunkOptions = 0;
  if (H5Pget_chunk_opts(cparms_id, &chunkOptions) < 0 || chunkOptions != 0) {
    return false;
  }
  // Each filter at most once, in this order.
  const std::pair<H5Z_filter_t, bool*> ours[] = {{H5Z_FILTER_SHUFFLE, &filters.mShuffle},
                                                 {H5Z_FILTER_DEFLATE, &filters.mDeflate},
                                                 {H5Z_FILTER_FLETCHER32, &filters.mFletcher32}};
  const std::vector<Filter> stored = ReadFilters(cparms_id);
  std::size_t found = 0;
  for (const auto& [filter, isUsed] : ours) {
    if (found < stored.size() && stored[found].mNumber == filter && IsTakenByCodec(stored[found])) {
      *isUsed = true;
      ++found;
    }
  }
  return found == stored.size() && H5Tequal(type_id, H5T_NATIVE_DOUBLE) > 0;
}

void StartReadingChunks(const OpenTable& table, std::uint64_t column, std::span<const RowRun> runs,
                        double* values, PendingReads& reads) {
  const std::uint64_t chunkRows = table.mLayout.mChunkRows;
  std::uint64_t row = runs.empty() ? 0 : runs[0].mFirst;
  while (!runs.empty()) {
    StoredChunk chunk = FetchChunk(table, row / chunkRows * chunkRows, column);
    const std::uint64_t chunkEnd = chunk.mRow + chunkRows;
    const auto isBeyond = [chunkEnd](const RowRun& run) { return run.mFirst >= chunkEnd; };
    const auto touched =
        static_cast<std::size_t>(std::ranges::find_if(runs, isBeyond) - runs.begin());
    chunk.mParts.reserve(touched);
    double* const chunkValues = values;
    while (!runs.empty() && row < chunkEnd) {
      const std::uint64_t end = std::min(chunkEnd, runs[0].mOnePastLast);
      chunk.mParts.push_back({row - chunk.mRow, {values, end - row}});
      values += end - row;
      row = end;
      if (end == runs[0].mOnePastLast) {
        runs = runs.subspan(1);
        row = runs.empty() ? end : runs[0].mFirst;
      }
    }
    if (chunk.mpBytes != nullptr) {
      reads.Decode(table, std::move(chunk));
      continue;
    }
    std::vector<RowRun> inChunk;
    inChunk.reserve(touched);
    for (const ChunkCodec::ChunkPart& part : chunk.mParts) {
      const std::uint64_t first = chunk.mRow + part.mFirst;
      inChunk.push_back({first, first + part.mValues.size()});
    }
    ReadByLibrary(table, column, inChunk, chunkValues);
  }
}

void WriteStoredChunk(const OpenTable& table, std::uint64_t row, std::uint64_t column,
                      std::span<const std::byte> stored) {
  const hsize_t offset[2] = {row, column};
  const herr_t err = table.mTrace(
      4, H5Dwrite_chunk(table.mDataset_id, H5P_DEFAULT, 0, offset, stored.size(), stored.data()),
      "H5Dwrite_chunk(", table.mDataset_id, ", ...)");
  REQUIRE_FOR_CALLER(err>=0, "H5Dwrite failed");
}

#else

// Such a library moves chunks through its own filters only.
bool CanMoveChunks(hid_t, hid_t, ChunkCodec::Filters&) {
  return false;
}

void StartReadingChunks(const OpenTable& table, std::uint64_t column, std::span<const RowRun> runs,
                        double* values, PendingReads&) {
  ReadByLibrary(table, column, runs, values);
}

void WriteStoredChunk(const OpenTable& table, std::uint64_t, std::uint64_t,
                      std::span<const std::byte>) {
  REQUIRE_FOR_CALLER(false, "internal error: this HDF5 library cannot write chunks");
}

#endif

}  // namespace Tables
