#include "Utils/Tables/PendingReads.hpp"

#include <algorithm>
#include <span>
#include <utility>

#include "Utils/ErrorHandling/Require.hpp"

namespace Tables {

namespace {

// Fewer values of a chunk are decoded sooner than a worker is woken; short chunks take longer to
// fetch, so that more of them are waited for.
constexpr std::uint64_t sValuesWorthAWorker = 16 * 1024;
constexpr std::uint64_t sShortChunksWorthAWorker = 32 * 1024;
// Values that pass the first caches together.
constexpr std::uint64_t sValuesTogether = 4 * 1024;
// The most that waiting chunks take together (see LimitedBytes()); one that takes more waits alone.
constexpr std::uint64_t sMostLimitedBytes = 32 * 1024 * 1024;

}  // namespace

std::uint64_t PendingReads::Item::LimitedBytes() const {
  const TableLayout& layout = mpOrigin->mLayout;
  return layout.mMovesChunks ? 0 : mChunk.mSize + FormatOf(layout).mChunkBytes;
}

void PendingReads::Item::Decode() {
  const TableLayout& layout = mpOrigin->mLayout;
  const std::span<const std::byte> stored(mChunk.mpBytes.get(), mChunk.mSize);
  mStatus = mDecoder.Decode(stored, FormatOf(layout), mChunk.mSkipped);
  if (mStatus == ChunkCodec::DecodeStatus::Ok && layout.mHoldsDoubles) {
    Deliver();
    // Reports need only the place of a chunk that is done.
    mDecoder = {};
    mChunk.mpBytes.reset();
    mTarget = {};
  }
}

void PendingReads::Item::Finish() {
  const Vexa::ReportContext context(mpOrigin->mDataset, mpOrigin->mFile);
  const Vexa::ReportAs label(mpOrigin->mLabel);
  RequireDecoded(mStatus, mpOrigin->mName, mChunk);
  if (!mpOrigin->mLayout.mHoldsDoubles) {
    Deliver();
  }
}

void PendingReads::Item::Deliver() const {
  const TableLayout& layout = mpOrigin->mLayout;
  const std::uint64_t columns = layout.mChunkColumns;
  const std::uint64_t rowsTogether = std::max<std::uint64_t>(sValuesTogether / columns, 1);
  // What lies as it is wanted is unpacked, and converted, where it goes.
  const bool isDirect = columns == 1 && layout.mElementBytes <= sizeof(double);
  std::unique_ptr<double[]> rowMajor;
  if (!isDirect) {
    const std::uint64_t elementDoubles = (layout.mElementBytes + 7) / sizeof(double);
    rowMajor = std::make_unique_for_overwrite<double[]>(std::min(rowsTogether, layout.mChunkRows) *
                                                        columns * elementDoubles);
  }
  for (RowSlice slice : mTarget.mSlices) {
    for (std::uint64_t rest = slice.mRows; rest > 0; rest -= slice.mRows) {
      slice.mRows = std::min(rowsTogether, rest);
      double* const values = isDirect ? slice.mpValues : rowMajor.get();
      const std::uint64_t count = slice.mRows * columns;
      mDecoder.Take((slice.mRow - mChunk.mRow) * columns,
                    {reinterpret_cast<std::byte*>(values), count * layout.mElementBytes});
      if (!layout.mHoldsDoubles) {
        const herr_t err =
            H5Tconvert(mpOrigin->mType, H5T_NATIVE_DOUBLE, count, values, nullptr, H5P_DEFAULT);
        REQUIRE_FOR_CALLER(err>=0, "H5Dread failed for name=" << mpOrigin->mName);
      }
      if (!isDirect) {
        Transpose(values + (mTarget.mFirstColumn - mChunk.mColumn), columns, slice, mTarget);
      }
      slice.mRow += slice.mRows;
      slice.mpValues += slice.mRows;
    }
  }
}

void PendingReads::Batch::Begin() {
  mIsBegun = true;
  mTask.Add([this] { std::ranges::for_each(mItems, &Item::Decode); });
}

void PendingReads::Decode(std::shared_ptr<const ChunkOrigin> origin, StoredChunk chunk,
                          Target target) {
  const TableLayout& layout = origin->mLayout;
  if (mBatches.empty() || mBatches.back().mIsBegun) {
    mBatches.emplace_back();
  }
  Batch& batch = mBatches.back();
  batch.mValues += layout.mChunkRows * layout.mChunkColumns;
  Item& item = batch.mItems.emplace_back(std::move(origin), std::move(chunk), std::move(target));
  batch.mLimitedBytes += item.LimitedBytes();
  mLimitedBytes += item.LimitedBytes();
  while (mBatches.size() > 1 && mLimitedBytes > sMostLimitedBytes) {
    FinishFirst();
  }
  const bool isOneChunk = batch.mItems.size() == 1;
  if (batch.mValues >= (isOneChunk ? sValuesWorthAWorker : sShortChunksWorthAWorker)) {
    batch.Begin();
  }
}

void PendingReads::FinishFirst() {
  Batch& first = mBatches.front();
  if (!first.mIsBegun) {
    std::ranges::for_each(first.mItems, &Item::Decode);
  }
  first.mTask.Wait();
  std::ranges::for_each(first.mItems, &Item::Finish);
  mLimitedBytes -= first.mLimitedBytes;
  mBatches.pop_front();
}

void PendingReads::Drop() {
  mBatches.clear();
  mLimitedBytes = 0;
}

void PendingReads::Finish() {
  while (!mBatches.empty()) {
    FinishFirst();
  }
}

}  // namespace Tables
