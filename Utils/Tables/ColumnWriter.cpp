#include "Utils/Tables/ColumnWriter.hpp"

#include <algorithm>
#include <cstdlib>
#include <span>
#include <utility>

#include "Utils/ChunkCodec/ShortChunk.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Tables/LibraryAccess.hpp"

namespace Tables {

namespace {

using ChunkCodec::ChunkEncoder;

// A chunk below this is encoded sooner than a worker is woken.
constexpr std::uint64_t sRowsWorthAWorker = 16 * 1024;

// Stores the filtered bytes of the chunk that begins at this row, without the library's filters.
void WriteStoredChunk(const OpenTable& table, std::uint64_t row, std::uint64_t column,
                      std::span<const std::byte> stored) {
  const hsize_t offset[2] = {row, column};
  const herr_t err = table.mTrace(
      4, H5Dwrite_chunk(table.mDataset_id, H5P_DEFAULT, 0, offset, stored.size(), stored.data()),
      "H5Dwrite_chunk(", table.mDataset_id, ", ...)");
  REQUIRE_FOR_CALLER(err>=0, "H5Dwrite failed");
}

// Above this, columns are moved as blocks, and encoded by all threads.
constexpr std::uint64_t sMostValues = 64 * 1024;

// Rows that lie in memory row after row.
struct Rows {
  std::uint64_t mFirst;
  std::uint64_t mEnd;
  std::uint64_t mColumns;
  const double* mpValues;

  void CopyColumn(std::uint64_t column, const RowRun& run, double* to) const {
    for (std::uint64_t row = run.mFirst; row < run.mOnePastLast; ++row) {
      *to++ = mpValues[(row - mFirst) * mColumns + column];
    }
  }
};

// Writes the rows as chunks that our codec makes, one after the other.
void WriteChunks(const OpenTable& table, const Rows& rows) {
  const std::uint64_t chunkRows = table.mLayout.mChunkRows;
  const auto& encode = chunkRows <= ChunkCodec::sMostValuesOfShortChunk
                           ? ChunkCodec::EncodeShortChunk
                           : ChunkCodec::EncodeChunk;
  std::vector<double> chunk(chunkRows);
  for (std::uint64_t c = 0; c < rows.mColumns; ++c) {
    for (std::uint64_t row = rows.mFirst / chunkRows * chunkRows; row < rows.mEnd;
         row += chunkRows) {
      const std::uint64_t known = rows.mFirst > row ? rows.mFirst - row : 0;
      const std::uint64_t end = std::min(row + chunkRows, rows.mEnd);
      ReadColumns(table, {c, 1, row, known}, chunk.data());
      rows.CopyColumn(c, {row + known, end}, chunk.data() + known);
      std::fill(chunk.begin() + static_cast<std::ptrdiff_t>(end - row), chunk.end(), 0.);
      WriteStoredChunk(table, row, c, encode(chunk, table.mLayout.mFilters));
    }
  }
}

// Writes the rows as columns: those that complete a chunk, then the others.
void WriteColumns(const OpenTable& table, const Rows& rows) {
  const std::uint64_t chunkRows = std::max<std::uint64_t>(table.mLayout.mChunkRows, 1);
  const std::uint64_t missing = (chunkRows - rows.mFirst % chunkRows) % chunkRows;
  const std::uint64_t middle = std::min(rows.mFirst + missing, rows.mEnd);
  for (const RowRun& run : {RowRun{rows.mFirst, middle}, RowRun{middle, rows.mEnd}}) {
    if (run.Size() > 0) {
      ColumnWriter writer(table, run.mFirst, run.Size());
      for (std::uint64_t c = 0; c < rows.mColumns; ++c) {
        rows.CopyColumn(c, run, writer.Room(run.Size()).mpValues);
      }
      writer.Finish();
    }
  }
}

}  // namespace

ColumnWriter::ColumnWriter(const OpenTable& table, std::uint64_t firstRow, std::uint64_t rows)
    : mTable(table),
      mFirstRow(firstRow),
      mRows(rows),
      mMovesChunks(table.mLayout.mMovesChunks && firstRow % table.mLayout.mChunkRows == 0),
      mLongestStretch(mMovesChunks ? std::min(table.mLayout.mChunkRows, rows) : rows) {
  // Some pieces of work for each thread; few enough to stay in a cache.
  const std::uint64_t wantedValues = 256 * 1024 * (Vexa::NumberOfThreads() + 1);
  const std::uint64_t stretches = wantedValues / std::max<std::uint64_t>(mLongestStretch, 1);
  mBlockValues = std::min(std::max<std::uint64_t>(stretches, 1) * mLongestStretch,
                          rows * table.mLayout.mColumns);
}

void ColumnWriter::Reserve(Buffer& buffer, std::uint64_t values) const {
  if (values > buffer.mCapacity) {
    buffer.mReads.Finish();  // they know the old place
    // What is needed and no more: doubling would hold a long chunk twice.
    const std::uint64_t capacity = std::max(mBlockValues, values);
    auto larger = std::make_unique_for_overwrite<double[]>(capacity);
    std::copy_n(buffer.mpValues.get(), buffer.mSize, larger.get());
    buffer.mpValues = std::move(larger);
    buffer.mCapacity = capacity;
  }
}

ColumnWriter::Place ColumnWriter::Room(std::uint64_t count) {
  if (mpFilling->mSize >= mLongestStretch && mpFilling->mSize + count > mBlockValues) {
    ExchangeBuffers();
  }
  Buffer& buffer = *mpFilling;
  Reserve(buffer, buffer.mSize + count);
  double* const room = buffer.mpValues.get() + buffer.mSize;
  buffer.mSize += count;
  return {room, buffer.mReads};
}

void ColumnWriter::Append(std::span<const double> values) {
  while (!values.empty()) {
    const auto part = values.first(std::min<std::uint64_t>(values.size(), mBlockValues));
    std::ranges::copy(part, Room(part.size()).mpValues);
    values = values.subspan(part.size());
  }
}

ColumnWriter::Stretch ColumnWriter::StretchAt(std::uint64_t position) const {
  const std::uint64_t row = position % mRows;
  const std::uint64_t rows = std::min(mLongestStretch, mRows - row);
  const bool isChunk = mMovesChunks && rows == mTable.mLayout.mChunkRows;
  return {position / mRows, mFirstRow + row, rows, isChunk};
}

std::uint64_t ColumnWriter::Encode(Buffer& buffer) {
  std::uint64_t first = 0;
  while (first < buffer.mSize) {
    const Stretch stretch = StretchAt(mEncoded);
    if (first + stretch.mRows > buffer.mSize) {
      break;
    }
    const std::span values(buffer.mpValues.get() + first, stretch.mRows);
    const bool isForWorkers =
        stretch.mIsChunk && !mTable.mLayout.mFilters.empty() && stretch.mRows >= sRowsWorthAWorker;
    if (isForWorkers || buffer.mOutgoing.empty() || buffer.mOutgoing.back().mpEncoder != nullptr) {
      buffer.mOutgoing.emplace_back(mEncoded, values);
    } else {
      // There may be as many short stretches as values, so they do not stand alone.
      std::span<const double>& together = buffer.mOutgoing.back().mValues;
      together = {together.data(), together.size() + values.size()};
    }
    first += stretch.mRows;
    mEncoded += stretch.mRows;
    if (isForWorkers) {
      Outgoing& outgoing = buffer.mOutgoing.back();
      outgoing.mpEncoder = std::make_unique<ChunkEncoder>(values, mTable.mLayout.mFilters);
      outgoing.mPieces.resize(outgoing.mpEncoder->PieceCount());
      for (std::size_t i = 0; i < outgoing.mPieces.size(); ++i) {
        outgoing.mTasks.Add(
            [&outgoing, i] { outgoing.mPieces[i] = outgoing.mpEncoder->EncodePiece(i); });
      }
    }
  }
  return first;
}

void ColumnWriter::Write(Outgoing& outgoing) const {
  if (outgoing.mpEncoder != nullptr) {
    const Stretch stretch = StretchAt(outgoing.mFirst);
    outgoing.mTasks.Wait();
    const std::vector<std::byte> stored = outgoing.mpEncoder->Assemble(outgoing.mPieces);
    outgoing.mPieces.clear();
    WriteStoredChunk(mTable, stretch.mRow, stretch.mColumn, stored);
    return;
  }
  const ChunkCodec::Filters& filters = mTable.mLayout.mFilters;
  for (std::uint64_t done = 0; done < outgoing.mValues.size();) {
    const Stretch stretch = StretchAt(outgoing.mFirst + done);
    const auto values = outgoing.mValues.subspan(done, stretch.mRows);
    if (!stretch.mIsChunk) {
      WriteByLibrary(mTable, {stretch.mColumn, 1, stretch.mRow, stretch.mRows}, values.data());
    } else if (filters.empty()) {
      WriteStoredChunk(mTable, stretch.mRow, stretch.mColumn, std::as_bytes(values));
    } else {
      WriteStoredChunk(mTable, stretch.mRow, stretch.mColumn,
                       ChunkCodec::EncodeChunk(values, filters));
    }
    done += stretch.mRows;
  }
}

void ColumnWriter::Write(Buffer& buffer) const {
  while (!buffer.mOutgoing.empty()) {
    Write(buffer.mOutgoing.front());
    buffer.mOutgoing.pop_front();
  }
  buffer.mSize = 0;
}

void ColumnWriter::ExchangeBuffers() {
  // In this order: meanwhile the workers decode what is being read.
  Write(*mpWriting);
  Buffer& full = *mpFilling;
  full.mReads.Finish();
  const std::uint64_t encoded = Encode(full);
  // What has begun of the next stretch goes to the front of the other buffer.
  const std::uint64_t rest = full.mSize - encoded;
  Reserve(*mpWriting, rest);
  std::copy_n(full.mpValues.get() + encoded, rest, mpWriting->mpValues.get());
  mpWriting->mSize = rest;
  std::swap(mpFilling, mpWriting);
}

// Of zeros that nobody has touched, the system keeps a page.
void ColumnWriter::WriteZeros() const {
  if (!mMovesChunks) {
    return;
  }
  const std::uint64_t bytes = mLongestStretch * sizeof(double);
  const std::unique_ptr<void, decltype(&std::free)> zeros(std::calloc(bytes, 1), &std::free);
  REQUIRE_FOR_CALLER(zeros!=nullptr, "No memory for a chunk of " << bytes << " bytes");
  Stretch stretch;
  for (std::uint64_t at = 0; at < mRows * mTable.mLayout.mColumns; at += stretch.mRows) {
    stretch = StretchAt(at);
    if (stretch.mIsChunk) {
      WriteStoredChunk(mTable, stretch.mRow, stretch.mColumn,
                       {static_cast<const std::byte*>(zeros.get()), bytes});
    }
  }
}

void ColumnWriter::WriteRows(const ColumnBlock& block, const double* values) {
  if (!std::exchange(mHasRows, true)) {
    WriteZeros();
  }
  for (std::uint64_t c = 0; c < block.mColumns; ++c) {
    WriteByLibrary(mTable, {block.mFirstColumn + c, 1, mFirstRow + block.mFirstRow, block.mRows},
                   values + c * block.mRows);
  }
}

void ColumnWriter::Finish() {
  Write(*mpWriting);
  mpFilling->mReads.Finish();
  Encode(*mpFilling);
  Write(*mpFilling);
}

void WriteRows(const OpenTable& table, std::uint64_t firstRow, std::span<const double> rowMajor) {
  const TableLayout& layout = table.mLayout;
  const std::uint64_t count = rowMajor.size() / layout.mColumns;
  const Rows rows{firstRow, firstRow + count, layout.mColumns, rowMajor.data()};
  if (rowMajor.size() > sMostValues) {
    WriteColumns(table, rows);
  } else if (layout.mMovesChunks && !layout.mFilters.empty() && layout.mChunkRows <= sMostValues) {
    WriteChunks(table, rows);
  } else {
    WriteByLibrary(table, {0, layout.mColumns, firstRow, count}, rowMajor.data());
  }
}

}  // namespace Tables
