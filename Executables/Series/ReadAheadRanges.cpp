#include "Executables/Series/ReadAheadRanges.hpp"

#include <algorithm>
#include <map>
#include <utility>

#include "Utils/Process/Memory.hpp"

namespace {

constexpr std::size_t sFilesKeptOpen = 64;
constexpr std::uint64_t sPageBytes = 4096;
constexpr std::uint64_t sMostGap = 64 * 1024;
// To have the system forget less takes longer than to read it.
constexpr std::uint64_t sLeastToForget = 4 * sPageBytes;
// Each thread would keep for itself what so many have taken.
constexpr std::size_t sRangesWorthReturning = 1024;
// The run waits for the first group; larger ones than the largest are read no faster.
constexpr std::uint64_t sFirstGroupBytes = std::uint64_t{4} << 20;
// In memory for less, what is read ahead is lost again, and what the run needs with it.
constexpr std::uint64_t sLeastGroupBytes = std::uint64_t{2} << 20;
constexpr std::uint64_t sMostGroupBytes = std::uint64_t{64} << 20;
// The one that the run is in, and the next.
constexpr std::size_t sMostGroups = 2;

using Piece = ReadAheadRanges::Piece;

// Sorts pieces and joins those that touch, and with gaps also those between which a page lies, or a
// small part of what is read before and at most `sMostGap`.
std::vector<Piece> Merged(std::vector<Piece> pieces, bool withGaps) {
  std::ranges::sort(pieces, {},
                    [](const Piece& piece) { return std::pair(piece.mFile, piece.mBegin); });
  std::vector<Piece> merged;
  for (const Piece& piece : pieces) {
    if (!merged.empty() && merged.back().mFile == piece.mFile) {
      Piece& last = merged.back();
      const std::uint64_t gap =
          withGaps ? std::clamp((last.mEnd - last.mBegin) / 16, sPageBytes, sMostGap) : 0;
      if (piece.mBegin <= last.mEnd + gap) {
        last.mEnd = std::max(last.mEnd, piece.mEnd);
        continue;
      }
    }
    merged.push_back(piece);
  }
  return merged;
}

Piece TakeFirst(std::deque<Piece>& pieces) {
  const Piece first = pieces.front();
  pieces.pop_front();
  return first;
}

std::uint64_t GroupBytes() {
  return std::min(Vexa::MemoryLeft() / 8, sMostGroupBytes);
}

// What is known of files takes memory, too.
std::size_t MostRanges() {
  constexpr std::uint64_t most = std::uint64_t{1} << 22;
  return std::min(Vexa::MemoryLeft() / 32 / sizeof(ReadAheadPasses::Part), most);
}

}  // namespace

ReadAheadRanges::ReadAheadRanges(const std::vector<std::string>& paths, ReadAhead::Plan plan,
                                 Vexa_H5::WantedValues wanted, bool isMemoryShort)
    : mFiles(paths.size()),
      mDatasets(plan.size()),
      mMostRanges(MostRanges()),
      mWanted(wanted),
      mIsMemoryShort(isMemoryShort),
      mGroupBytes(std::min(sFirstGroupBytes, GroupBytes())) {
  for (std::size_t i = 0; i < paths.size(); ++i) {
    mFiles[i].mPath = paths[i];
    mFiles[i].mBytes = ReadAheadSource::BytesOf(paths[i]);
  }
  for (std::size_t i = 0; i < plan.size(); ++i) {
    mDatasets[i].mPlaces.assign(plan[i].rbegin(), plan[i].rend());
  }
  mHasEnded = mGroupBytes < sLeastGroupBytes;
}

void ReadAheadRanges::Run() {
  while (const std::optional<Task> task = Next()) {
    if (task->mKind == Task::Kind::LookUp) {
      LookUp(*task);
    } else if (task->mKind == Task::Kind::Read) {
      Read(task->mPiece);
    } else {
      SourceOf(task->mPiece.mFile)->Release(task->mPiece.mBegin, task->mPiece.mEnd);
    }
  }
}

void ReadAheadRanges::Reach(std::size_t dataset) {
  const std::lock_guard lock(mMutex);
  mReached = {dataset};
  mApproached = {};
  LeaveBehind();
}

void ReadAheadRanges::Approach(const ReadAhead::Rows& rows) {
  const std::lock_guard lock(mMutex);
  mReached.mPass += ReadAheadPasses::GoesOn(mApproached, rows) ? 0 : 1;
  mReached.mFile = rows.mFile;
  mReached.mRow = rows.mRow;
  mApproached = rows;
  LeaveBehind();
}

void ReadAheadRanges::LeaveBehind() {
  while (!mGroups.empty() && mGroups.front().mEnd <= mReached) {
    const std::vector<Piece>& pieces = mGroups.front().mToForget;
    mToRelease.insert(mToRelease.end(), pieces.begin(), pieces.end());
    mGroups.pop_front();
  }
  mChanged.notify_all();
}

void ReadAheadRanges::End() {
  const std::lock_guard lock(mMutex);
  mHasEnded = true;
  mChanged.notify_all();
}

std::optional<ReadAheadRanges::Task> ReadAheadRanges::Next() {
  std::unique_lock lock(mMutex);
  while (!mHasEnded) {
    while (MakeGroup()) {
    }
    if (!mToRelease.empty()) {
      return Task{Task::Kind::Release, TakeFirst(mToRelease)};
    }
    for (Group& group : mGroups) {
      if (!group.mToRead.empty()) {
        return Task{Task::Kind::Read, TakeFirst(group.mToRead)};
      }
    }
    if (const std::optional<Task> task = NextLookUp()) {
      return task;
    }
    if (mUngrouped == mDatasets.size()) {
      break;
    }
    mChanged.wait(lock);
  }
  return {};
}

std::optional<ReadAheadRanges::Task> ReadAheadRanges::NextLookUp() {
  // Of the first that is not known, the places in all files are needed before it can be grouped.
  const auto isWanted = [this] {
    return mNext <= mKnown || (mUngroupedBytes < 2 * mGroupBytes && mRanges < mMostRanges);
  };
  for (; mNext < mDatasets.size() && isWanted(); ++mNext) {
    Dataset& dataset = mDatasets[mNext];
    if (mNext < mReached.mDataset) {
      dataset.mPlaces.clear();
    }
    if (!dataset.mPlaces.empty()) {
      const ReadAhead::Place place = dataset.mPlaces.back();
      dataset.mPlaces.pop_back();
      ++dataset.mOnTheirWay;
      return Task{Task::Kind::LookUp, {place.mFile, place.mAddress, 0}, mNext};
    }
  }
  return {};
}

// Counts the next datasets as long as they fit in a group. A long one waits until it is the next to
// be grouped.
void ReadAheadRanges::TakeKnown() {
  for (; mKnown < mDatasets.size() && mDatasets[mKnown].IsKnown() && mKnownBytes < mGroupBytes;
       ++mKnown) {
    Dataset& dataset = mDatasets[mKnown];
    if (!dataset.mIsLong && dataset.mBytes > mGroupBytes && dataset.mBytes > 2 * GroupBytes() &&
        !dataset.mPasses.Parts().empty()) {
      dataset.mIsLong = true;
      dataset.mPasses.Begin();
      mUngroupedBytes -= dataset.mBytes;
    }
    if (dataset.mIsLong) {
      return;
    }
    mKnownBytes += dataset.mBytes;
  }
}

bool ReadAheadRanges::MakeGroup() {
  TakeKnown();
  const bool isLong = mKnown < mDatasets.size() && mDatasets[mKnown].mIsLong;
  const bool isFull = isLong || mKnownBytes >= mGroupBytes || mKnown == mDatasets.size();
  if (isLong && mKnown == mUngrouped) {
    return MakeGroupOfLong();
  }
  if (mKnown == mUngrouped || !isFull || mGroups.size() >= sMostGroups) {
    return false;
  }
  std::vector<Piece> pieces;
  for (; mUngrouped < mKnown; ++mUngrouped) {
    Dataset& dataset = mDatasets[mUngrouped];
    if (mUngrouped >= mReached.mDataset) {
      pieces.insert(pieces.end(), dataset.mPieces.begin(), dataset.mPieces.end());
      for (const auto& [file, bytes] : dataset.mPasses.Parts()) {
        pieces.push_back({file, bytes.mBegin, bytes.mEnd});
      }
    }
    Forget(dataset);
  }
  mUngroupedBytes -= std::exchange(mKnownBytes, 0);
  AddGroup({mUngrouped}, std::move(pieces));
  return true;
}

// What is not of the table itself, an index or a legend, is needed before it. Nobody waits until
// the run has left that behind.
bool ReadAheadRanges::MakeGroupOfLong() {
  Dataset& dataset = mDatasets[mUngrouped];
  const bool isReached = mReached.mDataset == mUngrouped;
  if (mReached.mDataset > mUngrouped || (isReached && dataset.mPasses.IsDone())) {
    Forget(dataset);
    mKnown = ++mUngrouped;
    return true;
  }
  std::erase_if(mGroups, [this](const Group& group) {
    return group.mEnd == Position{mUngrouped + 1} && group.mToRead.empty();
  });
  if (mGroups.size() >= sMostGroups) {
    return false;
  }
  if (!dataset.mPieces.empty()) {
    mRanges -= dataset.mPieces.size();
    AddGroup({mUngrouped + 1}, std::exchange(dataset.mPieces, {}));
    return true;
  }
  const std::uint64_t pass = isReached ? mReached.mPass : 0;
  dataset.mPasses.MoveTo(pass, isReached ? mApproached : ReadAhead::Rows());
  std::vector<Piece> pieces;
  Position end{mUngrouped, pass};
  for (const auto& [file, bytes] : dataset.mPasses.Next(mGroupBytes)) {
    pieces.push_back({file, bytes.mBegin, bytes.mEnd});
    end.mFile = file;
    end.mRow = bytes.mRow + 1;
  }
  if (pieces.empty()) {
    return isReached && dataset.mPasses.IsDone();
  }
  AddGroup(end, std::move(pieces));
  return true;
}

void ReadAheadRanges::Forget(Dataset& dataset) {
  mRanges -= dataset.mPieces.size() + dataset.mPasses.Parts().size();
  dataset.mPieces = {};
  dataset.mPasses = {};
}

void ReadAheadRanges::AddGroup(const Position& end, std::vector<Piece> pieces) {
  pieces = Merged(std::move(pieces), true);
  Group group{end, {}, {}};
  std::uint64_t room = 2 * mGroupBytes;
  for (const Piece& piece : pieces) {
    for (std::uint64_t at = piece.mBegin; at < piece.mEnd && room > 0;) {
      const std::uint64_t size =
          std::min<std::uint64_t>({piece.mEnd - at, ReadAheadSource::sRequestBytes, room});
      group.mToRead.push_back({piece.mFile, at, at + size});
      at += size;
      room -= size;
    }
  }
  if (mIsMemoryShort) {
    std::erase_if(pieces,
                  [](const Piece& piece) { return piece.mEnd - piece.mBegin < sLeastToForget; });
    group.mToForget = std::move(pieces);
  }
  mGroups.push_back(std::move(group));
  const std::uint64_t most = GroupBytes();
  mGroupBytes = std::min(mGroupBytes * 4, most);
  mHasEnded = mHasEnded || most < sLeastGroupBytes;
  mChanged.notify_all();
}

std::shared_ptr<const ReadAheadSource> ReadAheadRanges::SourceOf(std::size_t number) {
  File& file = mFiles[number];
  std::call_once(file.mIsOpened, [number, &file] {
    const auto source = std::make_shared<ReadAheadSource>(file.mPath);
    source->ReadNoFurther();
    const auto read = [&source](std::uint64_t at, std::uint64_t count) {
      return source->Bytes(at, count);
    };
    if (number < sFilesKeptOpen) {
      file.mpSource = source;
    }
    if (file.mBytes == 0 || !Vexa_H5::HasKnownAddresses(read) || source->IsInMemory(file.mBytes)) {
      file.mIsLeftOut = true;
    }
  });
  if (file.mpSource != nullptr) {
    return file.mpSource;
  }
  const auto source = std::make_shared<ReadAheadSource>(file.mPath);
  source->ReadNoFurther();
  return source;
}

void ReadAheadRanges::LookUp(const Task& task) {
  if (TakeIn(task) > sRangesWorthReturning) {
    Vexa::ReturnFreedMemory();
  }
}

// Returns how many ranges that is.
std::size_t ReadAheadRanges::TakeIn(const Task& task) {
  const std::size_t file = task.mPiece.mFile;
  std::deque<Vexa_H5::ByteRange> ranges;
  const auto source = SourceOf(file);
  if (!mFiles[file].mIsLeftOut) {
    const auto read = [&source](std::uint64_t at, std::uint64_t count) {
      return source->Bytes(at, count);
    };
    ranges =
        Vexa_H5::StoredRanges(task.mPiece.mBegin, mFiles[file].mBytes, read, mWanted, mMostRanges);
  }
  std::map<std::uint32_t, std::uint64_t> bytesOfTables;
  for (const Vexa_H5::ByteRange& range : ranges) {
    bytesOfTables[range.mTable] += range.mEnd - range.mBegin;
  }
  const std::size_t count = ranges.size();
  const auto longest =
      std::ranges::max_element(bytesOfTables, {}, &decltype(bytesOfTables)::value_type::second);
  const std::lock_guard lock(mMutex);
  Dataset& dataset = mDatasets[task.mDataset];
  if (mRanges < mMostRanges) {
    mRanges -= dataset.mPieces.size() + dataset.mPasses.Parts().size();
    for (const Vexa_H5::ByteRange& range : ranges) {
      if (range.mTable != longest->first) {
        dataset.mPieces.push_back({file, range.mBegin, range.mEnd});
      }
    }
    std::erase_if(ranges, [longest](const auto& range) { return range.mTable != longest->first; });
    dataset.mPasses.Add(file, std::move(ranges));
    mRanges += dataset.mPieces.size() + dataset.mPasses.Parts().size();
  }
  for (const auto& [table, bytes] : bytesOfTables) {
    dataset.mBytes += bytes;
    mUngroupedBytes += bytes;
  }
  --dataset.mOnTheirWay;
  mChanged.notify_all();
  return count;
}

void ReadAheadRanges::Read(const Piece& piece) {
  if (mFiles[piece.mFile].mIsLeftOut) {
    return;
  }
  const auto source = SourceOf(piece.mFile);
  const std::uint64_t size = piece.mEnd - piece.mBegin;
  if (!mHasRead.exchange(true)) {
    if (!source->IsKept(piece.mBegin, size)) {
      End();
    }
  } else if (source->Read(piece.mBegin, size).count() < 0) {
    LeaveOut(piece.mFile);
  }
}
