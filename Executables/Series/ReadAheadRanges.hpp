#pragma once

#include <atomic>
#include <compare>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Executables/Series/ReadAhead.hpp"
#include "Executables/Series/ReadAheadPasses.hpp"
#include "Executables/Series/ReadAheadSource.hpp"
#include "Utils/HDF5/StoredRanges.hpp"

/// Reads what datasets take, group after group. Whichever thread is free looks up where the next
/// dataset lies in one file, or reads a piece of the group.
class ReadAheadRanges : public ReadAhead::Work {
 public:
  /// If memory is short, what the run has left behind is not kept in it.
  ReadAheadRanges(const std::vector<std::string>& paths, ReadAhead::Plan plan,
                  Vexa_H5::WantedValues wanted, bool isMemoryShort);

  void Run() override;
  void Reach(std::size_t dataset) override;
  void Approach(const ReadAhead::Rows& rows) override;
  void LeaveOut(std::size_t file) override { mFiles[file].mIsLeftOut = true; }
  bool Reads(std::size_t file) const override { return !mHasEnded && !mFiles[file].mIsLeftOut; }
  void End() override;

  /// The bytes [mBegin, mEnd) of a file.
  struct Piece {
    std::size_t mFile;
    std::uint64_t mBegin;
    std::uint64_t mEnd;
  };

 private:
  struct File {
    std::string mPath;
    std::uint64_t mBytes = 0;
    std::atomic<bool> mIsLeftOut = false;
    std::once_flag mIsOpened;
    std::shared_ptr<const ReadAheadSource> mpSource;  // of the first few, while they are read
  };
  struct Dataset {
    std::vector<ReadAhead::Place> mPlaces;  // still to be looked up, the first one last
    std::size_t mOnTheirWay = 0;            // places that threads are looking up
    std::uint64_t mBytes = 0;
    std::vector<Piece> mPieces;
    ReadAheadPasses mPasses;  // over the longest table of each file
    bool mIsLong = false;     // too long for one group
    bool IsKnown() const { return mPlaces.empty() && mOnTheirWay == 0; }
  };
  // How far the run has come.
  struct Position {
    std::size_t mDataset = 0;
    std::uint64_t mPass = 0;  // over a long table
    std::size_t mFile = 0;
    std::uint64_t mRow = 0;
    auto operator<=>(const Position&) const = default;
  };
  struct Group {
    Position mEnd;                 // the run leaves it behind there
    std::deque<Piece> mToRead;     // what of it is not on its way yet
    std::vector<Piece> mToForget;  // all of it, if memory is short
  };
  struct Task {
    enum class Kind { LookUp, Read, Release } mKind;
    Piece mPiece;              // or a place, whose address is the beginning
    std::size_t mDataset = 0;  // of the place
  };

  std::optional<Task> Next();
  std::optional<Task> NextLookUp();
  void LeaveBehind();
  // Each returns whether it has changed anything.
  bool MakeGroup();
  bool MakeGroupOfLong();
  void TakeKnown();
  void Forget(Dataset& dataset);
  void AddGroup(const Position& end, std::vector<Piece> pieces);
  std::shared_ptr<const ReadAheadSource> SourceOf(std::size_t file);
  void LookUp(const Task& task);
  std::size_t TakeIn(const Task& task);
  void Read(const Piece& piece);

  std::vector<File> mFiles;
  std::mutex mMutex;
  std::condition_variable mChanged;
  std::vector<Dataset> mDatasets;
  std::size_t mNext = 0;              // the first dataset that has places to be looked up
  std::size_t mKnown = 0;             // all datasets before it are looked up
  std::size_t mUngrouped = 0;         // the first dataset that is in no group yet
  std::uint64_t mKnownBytes = 0;      // of those that are looked up and in no group
  std::uint64_t mUngroupedBytes = 0;  // of all in no group, as far as they are looked up
  std::size_t mRanges = 0;            // of those, that are in memory
  std::size_t mMostRanges;
  Position mReached;
  ReadAhead::Rows mApproached;
  std::deque<Group> mGroups;     // that the run has not left behind
  std::deque<Piece> mToRelease;  // of those that it has
  Vexa_H5::WantedValues mWanted;
  bool mIsMemoryShort;
  std::uint64_t mGroupBytes;
  std::atomic<bool> mHasRead = false;
  std::atomic<bool> mHasEnded = false;
};
