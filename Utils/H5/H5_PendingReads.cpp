#include "Utils/H5/H5_PendingReads.hpp"

#include <span>
#include <utility>

#include "Utils/ErrorHandling/Require.hpp"

namespace {
// A chunk below this is decoded sooner than a worker is woken.
constexpr std::uint64_t sValuesWorthAWorker = 16 * 1024;
}  // namespace

void PendingReads::Decode(const OpenTable& table, StoredChunk chunk) {
  const std::uint64_t chunkRows = table.mLayout.mChunkRows;
  if (mOrigins.empty() || mOrigins.back().mName != table.mName ||
      mOrigins.back().mFile != ReportContext::File()) {
    mOrigins.push_back(
        {table.mName, ReportContext::Dataset(), ReportContext::File(), table.mWhere});
  }
  Item& item = mItems.emplace_back(Item{std::move(chunk), &mOrigins.back()});
  const auto decode = [&item, chunkRows] {
    StoredChunk& stored = item.mChunk;
    item.mStatus = ChunkCodec::DecodeChunk(std::span(stored.mpBytes.get(), stored.mSize),
                                           stored.mFilters, chunkRows, stored.mParts);
    stored.mpBytes.reset();
  };
  if (chunkRows < sValuesWorthAWorker) {
    decode();
  } else {
    mTasks.Add(decode);
  }
}

void PendingReads::Finish() {
  mTasks.Wait();
  for (const Item& item : mItems) {
    const ChunkCodec::DecodeStatus status = item.mStatus;
    const Origin& origin = *item.mpOrigin;
    const ReportContext context(origin.mDataset, origin.mFile);
    REQUIRE_AT(origin.mWhere, status==ChunkCodec::DecodeStatus::Ok,
               "Damaged chunk in " << origin.mName << " at row " << item.mChunk.mRow
                                   << " of column " << item.mChunk.mColumn << ": "
                                   << ChunkCodec::Describe(status));
  }
  mItems.clear();
  mOrigins.clear();
}
