#include "Utils/Tables/ColumnWriter.hpp"

#include <algorithm>
#include <span>
#include <utility>

#include "Utils/Tables/Chunks.hpp"

namespace Tables {

namespace {

using ChunkCodec::ChunkEncoder;

// Some pieces of work for each thread; few enough to stay in a cache.
std::uint64_t WantedBlockValues() {
  return 256 * 1024 * (NumberOfThreads() + 1);
}

// A chunk below this is encoded sooner than a worker is woken.
constexpr std::uint64_t sValuesWorthAWorker = 16 * 1024;

bool IsFiltered(const ChunkCodec::Filters& filters) {
  return filters.mShuffle || filters.mDeflate || filters.mFletcher32;
}

}  // namespace

ColumnWriter::ColumnWriter(const OpenTable& table, std::uint64_t firstRow, std::uint64_t rows)
    : mTable(table),
      mFirstRow(firstRow),
      mRows(rows),
      mMovesChunks(table.mLayout.mMovesChunks && firstRow % table.mLayout.mChunkRows == 0),
      mIsFiltered(IsFiltered(table.mLayout.mFilters)),
      mLongestPart(mMovesChunks ? std::min(table.mLayout.mChunkRows, rows) : rows),
      mTotal(rows * table.mLayout.mColumns) {
  const std::uint64_t parts = WantedBlockValues() / std::max<std::uint64_t>(mLongestPart, 1);
  mBlockValues = std::min(std::max<std::uint64_t>(parts, 1) * mLongestPart, mTotal);
}

void ColumnWriter::Reserve(Block& block, std::uint64_t values) const {
  if (values > block.mCapacity) {
    block.mReads.Finish();  // they know the old place
    // What is needed and no more: doubling would hold a long chunk twice.
    const std::uint64_t capacity = std::max(mBlockValues, values);
    auto larger = std::make_unique_for_overwrite<double[]>(capacity);
    std::copy_n(block.mpValues.get(), block.mSize, larger.get());
    block.mpValues = std::move(larger);
    block.mCapacity = capacity;
  }
}

ColumnWriter::Place ColumnWriter::Room(std::uint64_t count) {
  if (mpFilling->mSize >= mLongestPart && mpFilling->mSize + count > mBlockValues) {
    Turn();
  }
  Block& block = *mpFilling;
  Reserve(block, block.mSize + count);
  double* const room = block.mpValues.get() + block.mSize;
  block.mSize += count;
  return {room, block.mReads};
}

void ColumnWriter::Append(std::span<const double> values) {
  while (!values.empty()) {
    const auto part = values.first(std::min<std::uint64_t>(values.size(), mBlockValues));
    std::ranges::copy(part, Room(part.size()).mpValues);
    values = values.subspan(part.size());
  }
}

ColumnWriter::Part ColumnWriter::PartAt(std::uint64_t position) const {
  const std::uint64_t row = position % mRows;
  const std::uint64_t rows = std::min(mLongestPart, mRows - row);
  const bool isChunk = mMovesChunks && rows == mTable.mLayout.mChunkRows;
  return {position / mRows, mFirstRow + row, rows, isChunk};
}

std::uint64_t ColumnWriter::Encode(Block& block) {
  std::uint64_t first = 0;
  while (first < block.mSize) {
    const Part part = PartAt(mEncoded);
    if (first + part.mRows > block.mSize) {
      break;
    }
    const std::span values(block.mpValues.get() + first, part.mRows);
    const bool isForWorkers = part.mIsChunk && mIsFiltered && part.mRows >= sValuesWorthAWorker;
    if (isForWorkers || block.mOutgoing.empty() || block.mOutgoing.back().mpEncoder != nullptr) {
      block.mOutgoing.emplace_back(mEncoded, values);
    } else {
      // There may be as many short parts as values, so they do not stand alone.
      std::span<const double>& together = block.mOutgoing.back().mValues;
      together = {together.data(), together.size() + values.size()};
    }
    first += part.mRows;
    mEncoded += part.mRows;
    if (isForWorkers) {
      Encode(block.mOutgoing.back());
    }
  }
  return first;
}

void ColumnWriter::Encode(Outgoing& outgoing) const {
  outgoing.mpEncoder = std::make_unique<ChunkEncoder>(outgoing.mValues, mTable.mLayout.mFilters);
  outgoing.mPieces.resize(outgoing.mpEncoder->PieceCount());
  for (std::size_t i = 0; i < outgoing.mPieces.size(); ++i) {
    outgoing.mTasks.Add(
        [&outgoing, i] { outgoing.mPieces[i] = outgoing.mpEncoder->EncodePiece(i); });
  }
}

void ColumnWriter::Write(Outgoing& outgoing) const {
  if (outgoing.mpEncoder != nullptr) {
    const Part part = PartAt(outgoing.mFirst);
    outgoing.mTasks.Wait();
    const std::vector<std::byte> stored = outgoing.mpEncoder->Assemble(outgoing.mPieces);
    outgoing.mPieces.clear();
    WriteStoredChunk(mTable, part.mRow, part.mColumn, stored);
    return;
  }
  for (std::uint64_t done = 0; done < outgoing.mValues.size();) {
    const Part part = PartAt(outgoing.mFirst + done);
    const auto values = outgoing.mValues.subspan(done, part.mRows);
    if (!part.mIsChunk) {
      WriteByLibrary(mTable, part.mColumn, part.mRow, values);
    } else if (mIsFiltered) {
      WriteStoredChunk(mTable, part.mRow, part.mColumn,
                       ChunkCodec::EncodeChunk(values, mTable.mLayout.mFilters));
    } else {
      WriteStoredChunk(mTable, part.mRow, part.mColumn, std::as_bytes(values));
    }
    done += part.mRows;
  }
}

void ColumnWriter::Write(Block& block) const {
  while (!block.mOutgoing.empty()) {
    Write(block.mOutgoing.front());
    block.mOutgoing.pop_front();
  }
  block.mSize = 0;
}

void ColumnWriter::Turn() {
  // In this order: meanwhile the workers decode what is being read.
  Write(*mpWriting);
  Block& full = *mpFilling;
  full.mReads.Finish();
  const std::uint64_t encoded = Encode(full);
  // What has begun of the next part goes to the front of the other block.
  const std::uint64_t rest = full.mSize - encoded;
  Reserve(*mpWriting, rest);
  std::copy_n(full.mpValues.get() + encoded, rest, mpWriting->mpValues.get());
  mpWriting->mSize = rest;
  std::swap(mpFilling, mpWriting);
}

void ColumnWriter::Finish() {
  Write(*mpWriting);
  mpFilling->mReads.Finish();
  Encode(*mpFilling);
  Write(*mpFilling);
}

}  // namespace Tables
