#include "Utils/H5/H5_Chunks.hpp"

#include <algorithm>
#include <memory>
#include <span>
#include <vector>

#include "Utils/ChunkCodec/ChunkDecoder.hpp"
#include "Utils/ChunkCodec/ChunkEncoder.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/H5/Handle.hpp"
#include "Utils/Process/WorkerPool.hpp"

#if H5_VERSION_GE(1, 10, 3)

namespace {

using ChunkCodec::ChunkEncoder;

// Below this it costs more to wake the workers than they save.
constexpr std::uint64_t sValuesWorthThreads = 64 * 1024;

// One chunk on its way from the file to memory.
struct ChunkToRead {
  std::uint64_t mRow = 0;  // of its first row
  std::uint64_t mColumn = 0;
  double* mpColumn = nullptr;             // where the block's first row of the column goes
  std::unique_ptr<std::byte[]> mpStored;  // null if it went through the library
  std::uint64_t mStoredSize = 0;
  ChunkCodec::DecodeStatus mStatus = ChunkCodec::DecodeStatus::Ok;
};

class ChunkReader {
 public:
  ChunkReader(const OpenTable& table, const ColumnBlock& block)
      : mTable(table), mLayout(table.mLayout), mBlock(block) {}

  // Reads `chunks` and leaves their values in place.
  void Read(std::span<ChunkToRead> chunks) {
    for (ChunkToRead& chunk : chunks) {
      Fetch(chunk);
    }
    const auto decode = [&](std::size_t i) { Decode(chunks[i]); };
    if (chunks.size() * mLayout.mChunkRows < sValuesWorthThreads) {
      for (std::size_t i = 0; i < chunks.size(); ++i) {
        decode(i);
      }
    } else {
      ParallelFor(chunks.size(), decode);
    }
    for (const ChunkToRead& chunk : chunks) {
      if (chunk.mStatus == ChunkCodec::DecodeStatus::TrailingData) {
        ReadByLibrary(chunk);  // which takes no notice of it
        continue;
      }
      REQUIRE_AT(mTable.mWhere, chunk.mStatus==ChunkCodec::DecodeStatus::Ok,
                 "Damaged chunk in " << mTable.mName << " at row " << chunk.mRow << " of column "
                                     << chunk.mColumn << ": "
                                     << ChunkCodec::Describe(chunk.mStatus));
    }
  }

 private:
  void Fetch(ChunkToRead& chunk) {
    const hsize_t offset[2] = {chunk.mRow, chunk.mColumn};
    hsize_t size = 0;
    {
      // Fails on a chunk that was never written, which reads as the fill value.
      const MuteH5Errors muted;
      const herr_t ignored =
          mTable.mTrace(5, H5Dget_chunk_storage_size(mTable.mDataset_id, offset, &size),
                        "H5Dget_chunk_storage_size(", mTable.mDataset_id, ", ...)");
      size = ignored < 0 ? 0 : size;
    }
    // No encoder makes a chunk much larger than it was. The library would inflate whatever there
    // is.
    const std::uint64_t mostBytes = 2 * sizeof(double) * mLayout.mChunkRows + 65536;
    REQUIRE_AT(mTable.mWhere, size<=mostBytes, "Damaged chunk in " << mTable.mName << " at row "
                                                   << chunk.mRow << " of column " << chunk.mColumn
                                                   << ": " << size << " bytes are stored");
    std::uint32_t filterMask = 0;
    if (size > 0) {
      chunk.mpStored = std::make_unique_for_overwrite<std::byte[]>(size);
      chunk.mStoredSize = size;
      const herr_t err = mTable.mTrace(
          4,
          H5Dread_chunk(mTable.mDataset_id, H5P_DEFAULT, offset, &filterMask, chunk.mpStored.get()),
          "H5Dread_chunk(", mTable.mDataset_id, ", ...)");
      REQUIRE_AT(mTable.mWhere, err>=0, "H5Dread_chunk failed for name=" << mTable.mName);
    }
    if (chunk.mpStored == nullptr || filterMask != 0) {
      chunk.mpStored.reset();
      ReadByLibrary(chunk);
    }
  }

  void ReadByLibrary(const ChunkToRead& chunk) const {
    const auto [first, rows] = Overlap(chunk);
    ReadColumnsByLibrary(mTable, {chunk.mColumn, 1, first, rows},
                         chunk.mpColumn + (first - mBlock.mFirstRow));
  }

  // The chunk's rows that the block asks for: the first, and their number.
  std::pair<std::uint64_t, std::uint64_t> Overlap(const ChunkToRead& chunk) const {
    const std::uint64_t first = std::max(chunk.mRow, mBlock.mFirstRow);
    const std::uint64_t end =
        std::min(chunk.mRow + mLayout.mChunkRows, mBlock.mFirstRow + mBlock.mRows);
    return {first, end - first};
  }

  void Decode(ChunkToRead& chunk) const {
    if (chunk.mpStored == nullptr) {
      return;
    }
    const auto [first, rows] = Overlap(chunk);
    double* values = chunk.mpColumn + (first - mBlock.mFirstRow);
    const std::span<const std::byte> stored(chunk.mpStored.get(), chunk.mStoredSize);
    if (rows == mLayout.mChunkRows) {
      chunk.mStatus = ChunkCodec::DecodeChunk(stored, mLayout.mFilters, {values, rows});
    } else {
      const auto whole = std::make_unique_for_overwrite<double[]>(mLayout.mChunkRows);
      chunk.mStatus =
          ChunkCodec::DecodeChunk(stored, mLayout.mFilters, {whole.get(), mLayout.mChunkRows});
      std::copy_n(whole.get() + (first - chunk.mRow), rows, values);
    }
    chunk.mpStored.reset();
  }

  const OpenTable& mTable;
  const TableLayout& mLayout;
  const ColumnBlock& mBlock;
};

// Columns on their way to the file: as many at a time as there are threads.
struct ColumnToWrite {
  std::unique_ptr<double[]> mScratch;
  const double* mpValues = nullptr;
};

class ChunkWriter {
 public:
  ChunkWriter(const OpenTable& table, std::uint64_t firstRow)
      : mTable(table), mLayout(table.mLayout), mFirstRow(firstRow) {}

  // Writes the chunk that begins `row` rows into each of the columns.
  void Write(std::uint64_t firstColumn, std::span<const ColumnToWrite> columns, std::uint64_t row) {
    std::vector<ChunkEncoder> encoders;
    struct Job {
      std::size_t mColumn;
      std::size_t mPiece;
    };
    std::vector<Job> jobs;
    std::vector<std::vector<ChunkEncoder::Piece>> pieces;
    for (std::size_t c = 0; c < columns.size(); ++c) {
      encoders.emplace_back(std::span(columns[c].mpValues + row, mLayout.mChunkRows),
                            mLayout.mFilters);
      pieces.emplace_back(encoders.back().PieceCount());
      for (std::size_t piece = 0; piece < pieces.back().size(); ++piece) {
        jobs.push_back({c, piece});
      }
    }
    ParallelFor(jobs.size(), [&](std::size_t i) {
      const auto [column, piece] = jobs[i];
      pieces[column][piece] = encoders[column].EncodePiece(piece);
    });
    for (std::size_t c = 0; c < columns.size(); ++c) {
      const std::vector<std::byte> stored = encoders[c].Assemble(pieces[c]);
      pieces[c] = {};
      WriteStored(firstColumn + c, row, stored.data(), stored.size());
    }
  }

  void WriteStored(std::uint64_t column, std::uint64_t row, const void* stored, std::size_t size) {
    const hsize_t offset[2] = {mFirstRow + row, column};
    const herr_t err =
        mTable.mTrace(4, H5Dwrite_chunk(mTable.mDataset_id, H5P_DEFAULT, 0, offset, size, stored),
                      "H5Dwrite_chunk(", mTable.mDataset_id, ", ...)");
    REQUIRE_AT(mTable.mWhere, err>=0, "H5Dwrite failed");
  }

 private:
  const OpenTable& mTable;
  const TableLayout& mLayout;
  std::uint64_t mFirstRow;
};

bool IsFiltered(const ChunkCodec::Filters& filters) {
  return filters.mShuffle || filters.mDeflate || filters.mFletcher32;
}

}  // namespace

bool CanMoveChunks(hid_t dataset_id, hid_t cparms_id, ChunkCodec::Filters& filters) {
  unsigned chunkOptions = 0;
  if (H5Pget_chunk_opts(cparms_id, &chunkOptions) < 0 || chunkOptions != 0) {
    return false;
  }
  // Each filter at most once, in this order.
  const std::pair<H5Z_filter_t, bool*> ours[] = {{H5Z_FILTER_SHUFFLE, &filters.mShuffle},
                                                 {H5Z_FILTER_DEFLATE, &filters.mDeflate},
                                                 {H5Z_FILTER_FLETCHER32, &filters.mFletcher32}};
  const int count = H5Pget_nfilters(cparms_id);
  int found = 0;
  for (const auto& [filter, isUsed] : ours) {
    unsigned flags = 0;
    unsigned config = 0;
    std::size_t values = 0;
    if (found < count && H5Pget_filter2(cparms_id, static_cast<unsigned>(found), &flags, &values,
                                        nullptr, 0, nullptr, &config) == filter) {
      *isUsed = true;
      ++found;
    }
  }
  if (found != count) {
    return false;
  }
  const DatatypeHandle type_id(H5Dget_type(dataset_id));
  return type_id >= 0 && H5Tequal(type_id, H5T_NATIVE_DOUBLE) > 0;
}

void ReadChunks(const OpenTable& table, const ColumnBlock& block, double* values) {
  const TableLayout& layout = table.mLayout;
  ChunkReader reader(table, block);
  // As many at a time as the workers can take, but not a whole table: what is stored of these is
  // in memory besides the values.
  const std::size_t batch = NumberOfThreads();
  std::vector<ChunkToRead> chunks;
  for (std::uint64_t c = 0; c < block.mColumns; ++c) {
    const std::uint64_t firstChunk = block.mFirstRow / layout.mChunkRows;
    const std::uint64_t lastChunk = (block.mFirstRow + block.mRows - 1) / layout.mChunkRows;
    for (std::uint64_t chunk = firstChunk; chunk <= lastChunk; ++chunk) {
      ChunkToRead& next = chunks.emplace_back();
      next.mRow = chunk * layout.mChunkRows;
      next.mColumn = block.mFirstColumn + c;
      next.mpColumn = values + c * block.mRows;
      if (chunks.size() == batch) {
        reader.Read(chunks);
        chunks.clear();
      }
    }
  }
  reader.Read(chunks);
}

void WriteChunks(const OpenTable& table, std::uint64_t firstRow, std::uint64_t rows,
                 const ColumnSource& source) {
  const TableLayout& layout = table.mLayout;
  ChunkWriter writer(table, firstRow);
  // One long column has pieces enough for all threads; of short ones, several go together.
  const bool isFiltered = IsFiltered(layout.mFilters);
  const std::uint64_t together =
      isFiltered && rows >= sValuesWorthThreads / 8 ? NumberOfThreads() : 1;
  std::vector<ColumnToWrite> columns(std::min(together, layout.mColumns));
  for (std::uint64_t first = 0; first < layout.mColumns; first += columns.size()) {
    const std::size_t count = std::min<std::uint64_t>(columns.size(), layout.mColumns - first);
    for (std::size_t c = 0; c < count; ++c) {
      if (columns[c].mScratch == nullptr) {
        columns[c].mScratch = std::make_unique_for_overwrite<double[]>(rows);
      }
      columns[c].mpValues = source(first + c, columns[c].mScratch.get());
    }
    for (std::uint64_t row = 0; row < rows; row += layout.mChunkRows) {
      if (isFiltered) {
        writer.Write(first, std::span(columns).first(count), row);
      } else {
        for (std::size_t c = 0; c < count; ++c) {
          writer.WriteStored(first + c, row, columns[c].mpValues + row,
                             sizeof(double) * layout.mChunkRows);
        }
      }
    }
  }
}

#else

// Such a library moves chunks through its own filters only.
bool CanMoveChunks(hid_t, hid_t, ChunkCodec::Filters&) {
  return false;
}

void ReadChunks(const OpenTable& table, const ColumnBlock& block, double* values) {
  ReadColumnsByLibrary(table, block, values);
}

void WriteChunks(const OpenTable& table, std::uint64_t, std::uint64_t, const ColumnSource&) {
  REQUIRE_AT(table.mWhere, false, "internal error: this HDF5 library cannot write chunks");
}

#endif
