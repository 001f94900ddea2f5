#include "Utils/Tables/PendingReads.hpp"

#include <algorithm>
#include <span>
#include <utility>

#include "Utils/ErrorHandling/Require.hpp"

namespace Tables {

namespace {

// A chunk below this is decoded sooner than a worker is woken.
constexpr std::uint64_t sValuesWorthAWorker = 16 * 1024;
// Values that pass the first caches together.
constexpr std::uint64_t sValuesTogether = 4 * 1024;
// Of chunks whose elements wait to be converted; one that has more waits alone.
constexpr std::uint64_t sMostUnconvertedBytes = 32 * 1024 * 1024;

}  // namespace

void PendingReads::Item::Decode() {
  const std::span<const std::byte> stored(mChunk.mpBytes.get(), mChunk.mSize);
  mStatus = mDecoder.Decode(stored, FormatOf(mLayout), mChunk.mSkipped);
}

void PendingReads::Item::Deliver() const {
  const std::uint64_t columns = mLayout.mChunkColumns;
  const std::uint64_t rowsTogether = std::max<std::uint64_t>(sValuesTogether / columns, 1);
  // What lies as it is wanted is unpacked, and converted, where it goes.
  const bool isDirect = columns == 1 && mLayout.mElementBytes <= sizeof(double);
  std::unique_ptr<double[]> rowMajor;
  if (!isDirect) {
    const std::uint64_t elementDoubles = (mLayout.mElementBytes + 7) / sizeof(double);
    rowMajor = std::make_unique_for_overwrite<double[]>(std::min(rowsTogether, mLayout.mChunkRows) *
                                                        columns * elementDoubles);
  }
  for (RowSlice slice : mTarget.mSlices) {
    for (std::uint64_t rest = slice.mRows; rest > 0; rest -= slice.mRows) {
      slice.mRows = std::min(rowsTogether, rest);
      double* const values = isDirect ? slice.mpValues : rowMajor.get();
      const std::uint64_t count = slice.mRows * columns;
      mDecoder.Take((slice.mRow - mChunk.mRow) * columns,
                    {reinterpret_cast<std::byte*>(values), count * mLayout.mElementBytes});
      if (IsConverted()) {
        const herr_t err =
            H5Tconvert(mType_id, H5T_NATIVE_DOUBLE, count, values, nullptr, H5P_DEFAULT);
        REQUIRE_FOR_CALLER(err>=0, "H5Dread failed for name=" << mName);
      }
      if (!isDirect) {
        Transpose(values + (mTarget.mFirstColumn - mChunk.mColumn), columns, slice, mTarget);
      }
      slice.mRow += slice.mRows;
      slice.mpValues += slice.mRows;
    }
  }
}

void PendingReads::Decode(const OpenTable& table, hid_t type_id, StoredChunk chunk, Target target) {
  const TableLayout& layout = table.mLayout;
  if (layout.mChunkRows * layout.mChunkColumns < sValuesWorthAWorker) {
    Item item{layout, table.mName, type_id, std::move(chunk), std::move(target)};
    item.Decode();
    RequireDecoded(item.mStatus, table.mName, item.mChunk);
    item.Deliver();
    return;
  }
  auto origin = std::make_unique<Origin>(
      Origin{layout, table.mName, ReportContext::Dataset(), ReportContext::File(),
             ReportAs::Label(), Vexa_H5::DatatypeHandle(type_id < 0 ? -1 : H5Tcopy(type_id))});
  Item item{origin->mLayout, origin->mName, origin->mType, std::move(chunk), std::move(target)};
  if (item.IsConverted()) {
    while (!mWaiting.empty() && mUnconvertedBytes + item.Bytes() > sMostUnconvertedBytes) {
      FinishFirst();
    }
    mUnconvertedBytes += item.Bytes();
  }
  Item& waiting = mWaiting.emplace_back(std::move(origin), std::move(item)).mItem;
  mWaiting.back().mTask.Add([&waiting] {
    waiting.Decode();
    if (!waiting.IsConverted()) {
      if (waiting.mStatus == ChunkCodec::DecodeStatus::Ok) {
        waiting.Deliver();
      }
      // Of what is done only the place is kept, for reports.
      waiting.mDecoder = {};
      waiting.mChunk.mpBytes.reset();
      waiting.mTarget = {};
    }
  });
}

void PendingReads::FinishFirst() {
  WaitingItem& first = mWaiting.front();
  first.mTask.Wait();
  const Origin& origin = *first.mpOrigin;
  const ReportContext context(origin.mDataset, origin.mFile);
  const ReportAs label(origin.mLabel);
  RequireDecoded(first.mItem.mStatus, origin.mName, first.mItem.mChunk);
  if (first.mItem.IsConverted()) {
    mUnconvertedBytes -= first.mItem.Bytes();
    first.mItem.Deliver();
  }
  mWaiting.pop_front();
}

void PendingReads::Finish() {
  while (!mWaiting.empty()) {
    FinishFirst();
  }
}

}  // namespace Tables
