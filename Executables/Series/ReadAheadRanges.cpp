#include "Executables/Series/ReadAheadRanges.hpp"

#include <algorithm>
#include <utility>

#include "Utils/Process/Memory.hpp"

namespace {

constexpr std::size_t sFilesKeptOpen = 64;
constexpr std::uint64_t sPageBytes = 4096;
constexpr std::uint64_t sMostGap = 64 * 1024;
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

}  // namespace

ReadAheadRanges::ReadAheadRanges(const std::vector<std::string>& paths, ReadAhead::Plan plan,
                                 Vexa_H5::WantedValues wanted, bool isMemoryShort)
    : mFiles(paths.size()),
      mDatasets(plan.size()),
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
  mReached = dataset;
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
  for (; mNext < mDatasets.size() && mUngroupedBytes < 2 * mGroupBytes; ++mNext) {
    Dataset& dataset = mDatasets[mNext];
    if (mNext < mReached) {
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

bool ReadAheadRanges::MakeGroup() {
  for (; mKnown < mDatasets.size() && mDatasets[mKnown].IsKnown() && mKnownBytes < mGroupBytes;
       ++mKnown) {
    mKnownBytes += mDatasets[mKnown].mBytes;
  }
  const bool isFull = mKnownBytes >= mGroupBytes || mKnown == mDatasets.size();
  if (mKnown == mUngrouped || !isFull || mGroups.size() >= sMostGroups) {
    return false;
  }
  std::vector<Piece> pieces;
  for (; mUngrouped < mKnown; ++mUngrouped) {
    const std::vector<Piece> ofDataset = std::exchange(mDatasets[mUngrouped].mPieces, {});
    if (mUngrouped >= mReached) {
      pieces.insert(pieces.end(), ofDataset.begin(), ofDataset.end());
    }
  }
  pieces = Merged(std::move(pieces), true);
  Group group{mUngrouped, {}, {}};
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
    group.mToForget = std::move(pieces);
  }
  mGroups.push_back(std::move(group));
  mUngroupedBytes -= std::exchange(mKnownBytes, 0);
  const std::uint64_t most = GroupBytes();
  mGroupBytes = std::min(mGroupBytes * 4, most);
  mHasEnded = mHasEnded || most < sLeastGroupBytes;
  mChanged.notify_all();
  return true;
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
  const std::size_t file = task.mPiece.mFile;
  std::vector<Piece> pieces;
  const auto source = SourceOf(file);
  if (!mFiles[file].mIsLeftOut) {
    const auto read = [&source](std::uint64_t at, std::uint64_t count) {
      return source->Bytes(at, count);
    };
    for (const auto& [begin, end] :
         Vexa_H5::StoredRanges(task.mPiece.mBegin, mFiles[file].mBytes, read, mWanted)) {
      pieces.push_back({file, begin, end});
    }
    pieces = Merged(std::move(pieces), false);
  }
  const std::lock_guard lock(mMutex);
  Dataset& dataset = mDatasets[task.mDataset];
  for (const Piece& piece : pieces) {
    dataset.mBytes += piece.mEnd - piece.mBegin;
    mUngroupedBytes += piece.mEnd - piece.mBegin;
  }
  dataset.mPieces.insert(dataset.mPieces.end(), pieces.begin(), pieces.end());
  --dataset.mOnTheirWay;
  mChanged.notify_all();
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
