#include "Utils/Tables/PendingReads.hpp"

#include <span>
#include <utility>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Tables/RawChunks.hpp"

namespace Tables {

namespace {

// A chunk below this is decoded sooner than a worker is woken.
constexpr std::uint64_t sValuesWorthAWorker = 16 * 1024;

ChunkCodec::DecodeStatus DecodeNow(const StoredChunk& chunk, std::uint64_t chunkRows) {
  return ChunkCodec::DecodeChunk(std::span(chunk.mpBytes.get(), chunk.mSize), chunk.mFilters,
                                 chunkRows, chunk.mParts);
}

}  // namespace

void PendingReads::Decode(const OpenTable& table, StoredChunk chunk) {
  const std::uint64_t chunkRows = table.mLayout.mChunkRows;
  if (chunkRows < sValuesWorthAWorker) {
    RequireDecoded(DecodeNow(chunk, chunkRows), table.mName, chunk.mRow, chunk.mColumn);
    return;
  }
  if (mOrigins.empty() || mOrigins.back().mName != table.mName ||
      mOrigins.back().mFile != ReportContext::File()) {
    mOrigins.push_back(
        {table.mName, ReportContext::Dataset(), ReportContext::File(), ReportAs::Label()});
  }
  Item& item = mItems.emplace_back(Item{std::move(chunk), &mOrigins.back()});
  mTasks.Add([&item, chunkRows] {
    item.mStatus = DecodeNow(item.mChunk, chunkRows);
    // Of what is done only the place is kept, for reports.
    item.mChunk.mpBytes.reset();
    item.mChunk.mParts = {};
  });
}

void PendingReads::Finish() {
  mTasks.Wait();
  for (const Item& item : mItems) {
    const Origin& origin = *item.mpOrigin;
    const ReportContext context(origin.mDataset, origin.mFile);
    const ReportAs label(origin.mLabel);
    RequireDecoded(item.mStatus, origin.mName, item.mChunk.mRow, item.mChunk.mColumn);
  }
  mItems.clear();
  mOrigins.clear();
}

}  // namespace Tables
