#include "Utils/Tables/ChunkReader.hpp"

#include <algorithm>
#include <utility>
#include <vector>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/StoredChunks.hpp"
#include "Utils/Tables/LibraryAccess.hpp"
#include "Utils/Tables/PendingReads.hpp"
#include "Utils/Tables/Storage.hpp"

namespace Tables {

using ChunkCodec::DecodeStatus;

void RequireDecoded(DecodeStatus status, const std::string& name, const StoredChunk& chunk) {
  REQUIRE_FOR_CALLER(status==DecodeStatus::Ok,
             "H5Dread failed for name=" << name << ": damaged chunk at row " << chunk.mRow
                                        << " of column " << chunk.mColumn << ": "
                                        << ChunkCodec::Describe(status) << sSalvageAdvice);
}

ChunkCodec::ChunkFormat FormatOf(const TableLayout& layout) {
  return {layout.mFilters, layout.mChunkRows * layout.mChunkColumns * layout.mElementBytes,
          layout.mElementBytes};
}

StoredChunk ChunkReader::Fetch(std::span<const hsize_t> offset, bool isPlain,
                               bool tellsSize) const {
  StoredChunk chunk;
  chunk.mRow = offset[0];
  chunk.mColumn = offset.size() > 1 ? offset[1] : 0;
  hsize_t size = 0;
  {
    // Fails on a chunk that was never written, which reads as the fill value.
    const Vexa_H5::MuteH5Errors muted;
    const herr_t ignored = mTrace(5, H5Dget_chunk_storage_size(mDataset_id, offset.data(), &size),
                                  "H5Dget_chunk_storage_size(", mDataset_id, ", ...)");
    size = ignored < 0 ? 0 : size;
  }
  // No encoder makes a chunk much larger than it was. The library would inflate whatever there is.
  const std::uint64_t mostBytes = 2 * mFormat.mChunkBytes + 65536;
  if (tellsSize) {
    REQUIRE_FOR_CALLER(size<=mostBytes, "H5Dread failed for name=" << mName
                                                         << ": damaged chunk at row " << chunk.mRow
                                                         << " of column " << chunk.mColumn << ": "
                                                         << size << " bytes are stored" << sSalvageAdvice);
  }
  RequireDecoded(size <= mostBytes ? DecodeStatus::Ok : DecodeStatus::TooManyValues, mName, chunk);
  if (size == 0) {
    return chunk;
  }
  chunk.mpBytes = std::make_unique_for_overwrite<std::byte[]>(size);
  chunk.mSize = size;
  const herr_t err = mTrace(
      4,
      H5Dread_chunk(mDataset_id, H5P_DEFAULT, offset.data(), &chunk.mSkipped, chunk.mpBytes.get()),
      "H5Dread_chunk(", mDataset_id, ", ...)");
  REQUIRE_FOR_CALLER(err>=0, "H5Dread_chunk failed for name=" << mName);
  chunk.mSkipped = isPlain ? ~std::uint32_t{0} : chunk.mSkipped;
  return chunk;
}

void StartReadingChunks(const OpenTable& table, Target target, PendingReads& reads) {
  const TableLayout& layout = table.mLayout;
  RequireKnownFilters(layout.mFilters, table.mName);
  const ChunkCodec::ChunkFormat format = FormatOf(layout);
  const ChunkReader reader{table.mDataset_id, table.mName, table.mTrace, format};
  const bool isSealed =
      Has(layout.mFilters, ChunkCodec::sDeflate) || Has(layout.mFilters, ChunkCodec::sFletcher32);
  const bool tellsSize = layout.mMovesChunks && isSealed;
  Vexa_H5::DatatypeHandle type_id;
  if (!layout.mHoldsDoubles) {
    type_id = Vexa_H5::DatatypeHandle(H5Dget_type(table.mDataset_id));
    REQUIRE_FOR_CALLER(type_id>=0, "H5Dget_type failed");
  }
  const auto origin = std::make_shared<ChunkOrigin>(layout, table.mName, std::move(type_id));
  const std::uint64_t endColumn = target.mFirstColumn + target.mColumns;
  for (std::span<RowSlice> rest(target.mSlices); !rest.empty();) {
    const std::uint64_t row = rest[0].mRow / layout.mChunkRows * layout.mChunkRows;
    const std::vector<RowSlice> slices = TakeBefore(row + layout.mChunkRows, rest);
    for (std::uint64_t first = target.mFirstColumn; first < endColumn;) {
      const std::uint64_t column = first / layout.mChunkColumns * layout.mChunkColumns;
      const std::uint64_t end = std::min(column + layout.mChunkColumns, endColumn);
      Target inChunk{first, end - first, target.mStride, slices};
      for (RowSlice& slice : inChunk.mSlices) {
        slice.mpValues += (first - target.mFirstColumn) * target.mStride;
      }
      const hsize_t offset[] = {row, column};
      const bool isAtEdge =
          row + layout.mChunkRows > layout.mRows || column + layout.mChunkColumns > layout.mColumns;
      StoredChunk chunk = reader.Fetch(offset, isAtEdge && layout.mIsPlainAtEdges, tellsSize);
      if (chunk.mpBytes == nullptr) {
        ReadByLibrary(table, std::move(inChunk));
      } else {
        reads.Decode(origin, std::move(chunk), std::move(inChunk));
      }
      first = end;
    }
  }
}

namespace {

// Fails unless all chunks of a dataset with filters are whole.
void RequireSoundChunks(hid_t dataset_id, hid_t cparms_id, const Vexa_H5::ChunkGrid& grid,
                        const std::string& name) {
  const ChunkCodec::Filters filters = ReadFilters(cparms_id);
  const ChunkCodec::ChunkFormat format{filters, Vexa_H5::BytesOfChunk(dataset_id, grid, name), 1};
  const bool areEdgesPlain = AreEdgesPlain(cparms_id);
  RequireKnownFilters(filters, name);
  const Trace trace(0);
  const ChunkReader reader{dataset_id, name, trace, format};
  const std::size_t rank = grid.mDims.size();
  std::vector<hsize_t> offset(rank, 0);
  for (std::size_t d = 0; d < rank && std::ranges::count(grid.mDims, hsize_t{0}) == 0;) {
    bool isAtEdge = false;
    for (d = 0; d < rank; ++d) {
      isAtEdge = isAtEdge || offset[d] + grid.mChunk[d] > grid.mDims[d];
    }
    const StoredChunk chunk = reader.Fetch(offset, isAtEdge && areEdgesPlain, false);
    if (chunk.mpBytes != nullptr) {
      const std::span<const std::byte> stored(chunk.mpBytes.get(), chunk.mSize);
      RequireDecoded(ChunkCodec::ChunkDecoder().Decode(stored, format, chunk.mSkipped), name,
                     chunk);
    }
    for (d = 0; d < rank && (offset[d] += grid.mChunk[d]) >= grid.mDims[d]; ++d) {
      offset[d] = 0;
    }
  }
}

}  // namespace

void RequireSoundStorage(hid_t dataset_id, long double claimed, const std::string& name) {
  const Vexa_H5::PropertyListHandle cparms_id(H5Dget_create_plist(dataset_id));
  REQUIRE_FOR_CALLER(cparms_id>=0, "H5Dget_create_plist failed");
  const Vexa_H5::ChunkGrid grid = Vexa_H5::ReadChunkGrid(dataset_id, cparms_id);
  const std::uint64_t stored = Vexa_H5::RequirePlausibleStorage(dataset_id, grid, claimed, name);
  if (H5Pget_nfilters(cparms_id) == 0) {
    RequireWholeChunks(dataset_id, grid, stored, name);
  } else if (!grid.mChunk.empty()) {
    RequireSoundChunks(dataset_id, cparms_id, grid, name);
  }
}

}  // namespace Tables
