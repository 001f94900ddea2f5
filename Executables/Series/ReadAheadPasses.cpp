#include "Executables/Series/ReadAheadPasses.hpp"

#include <algorithm>
#include <tuple>

namespace {

// To read so much takes no longer than another request.
constexpr std::uint64_t sBytesWorthARequest = 64 * 1024;

bool AreTimes(const Vexa_H5::ByteRange& chunk) {
  return chunk.mFirstColumn == 0 && chunk.mEndColumn == 1;
}

// Joins those that touch and are read together.
void Join(std::deque<Vexa_H5::ByteRange>& chunks) {
  std::ranges::sort(chunks, {}, &Vexa_H5::ByteRange::mBegin);
  std::size_t count = 0;
  for (const Vexa_H5::ByteRange& chunk : chunks) {
    Vexa_H5::ByteRange* const pLast = count > 0 ? &chunks[count - 1] : nullptr;
    if (pLast != nullptr && chunk.mBegin == pLast->mEnd && AreTimes(chunk) == AreTimes(*pLast) &&
        chunk.mEnd - pLast->mBegin <= sBytesWorthARequest) {
      pLast->mEnd = chunk.mEnd;
      pLast->mRow = std::min(pLast->mRow, chunk.mRow);
      pLast->mFirstColumn = std::min(pLast->mFirstColumn, chunk.mFirstColumn);
      pLast->mEndColumn = std::max(pLast->mEndColumn, chunk.mEndColumn);
    } else {
      chunks[count++] = chunk;
    }
  }
  chunks.resize(count);
}

auto PlaceOf(const ReadAheadPasses::Part& part) {
  return std::tuple(part.mFile, part.mBytes.mRow);
}

}  // namespace

void ReadAheadPasses::Add(std::size_t file, std::deque<Vexa_H5::ByteRange> chunks) {
  std::uint64_t columns = 0;
  std::uint64_t bytes = 0;
  for (const Vexa_H5::ByteRange& chunk : chunks) {
    columns = std::max<std::uint64_t>(columns, chunk.mEndColumn);
    bytes += chunk.mEnd - chunk.mBegin;
  }
  mColumns = std::max(mColumns, columns);
  if (!chunks.empty() && bytes / chunks.size() * columns <= sBytesWorthARequest) {
    Join(chunks);
  } else {
    mReadsAlong = false;
  }
  mParts.reserve(mParts.size() + chunks.size());
  for (const Vexa_H5::ByteRange& chunk : chunks) {
    mParts.push_back({file, chunk});
  }
}

void ReadAheadPasses::Begin() {
  std::ranges::sort(mParts, {}, [](const Part& part) {
    return std::tuple(part.mFile, part.mBytes.mRow, part.mBytes.mBegin);
  });
}

bool ReadAheadPasses::GoesOn(const ReadAhead::Rows& before, const ReadAhead::Rows& now) {
  return now.mFirstColumn == before.mFirstColumn && now.mEndColumn == before.mEndColumn &&
         std::tuple(now.mFile, now.mRow) >= std::tuple(before.mFile, before.mRow);
}

void ReadAheadPasses::MoveTo(std::uint64_t pass, const ReadAhead::Rows& rows) {
  mNow = rows;
  // A row may be in the middle of a chunk.
  auto first = std::ranges::upper_bound(mParts, std::tuple(rows.mFile, rows.mRow), {}, PlaceOf);
  if (first != mParts.begin() && (first - 1)->mFile == rows.mFile) {
    first = std::ranges::lower_bound(mParts, PlaceOf(*(first - 1)), {}, PlaceOf);
  }
  const auto reached = static_cast<std::size_t>(first - mParts.begin());
  mNext = pass == mPass ? std::max(mNext, reached) : reached;
  mPass = pass;
}

// A pass over times alone is not worth the values, which are read once more after it.
bool ReadAheadPasses::IsWanted(const Part& part) const {
  const bool isInColumns =
      part.mBytes.mFirstColumn < mNow.mEndColumn && part.mBytes.mEndColumn > mNow.mFirstColumn;
  const bool isAlong = mReadsAlong && mNow.mFirstColumn > 0;
  return (isInColumns || isAlong) && (part.mFile != mNow.mFile || part.mBytes.mRow < mNow.mEndRow);
}

std::vector<ReadAheadPasses::Part> ReadAheadPasses::Next(std::uint64_t bytes) {
  std::vector<Part> parts;
  for (std::uint64_t taken = 0; mNext < mParts.size() && taken < bytes; ++mNext) {
    const Part& part = mParts[mNext];
    if (IsWanted(part)) {
      parts.push_back(part);
      taken += part.mBytes.mEnd - part.mBytes.mBegin;
    }
  }
  return parts;
}
