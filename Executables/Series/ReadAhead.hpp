#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "Utils/Containers/MyVector.hpp"

/// Brings the inputs of a run into the system's page cache ahead of the run. The run goes from
/// dataset to dataset and so jumps about in all files; where every jump is a request to a file
/// server, it mostly waits. Here threads read meanwhile in large requests, several at once, and
/// throw away what they read.
///
/// If all of the files is needed and they fit in half of the memory that is left, they are read
/// from front to back. Else only what is needed of the datasets is read, those together that fit in
/// an eighth of the memory, in the order of the files, and two such groups at most beyond what the
/// run has come to. A table that is larger is read in such groups of its chunks.
///
/// It reads nothing where that would not help: files that are in memory already, which is told by
/// the time that probes take, as the system tells only the owner; files of systems that keep
/// nothing in memory, so that a second reading takes as long as the first. Nor if the environment
/// variable VEXA_NO_READ_AHEAD is set.
///
/// What cannot be read here is no failure: the run reads it itself and reports it.
class ReadAhead {
 public:
  /// Where a dataset begins: its address in a file, which is counted as it was given.
  struct Place {
    std::size_t mFile;
    std::uint64_t mAddress;
  };
  /// The places of each dataset, in the order in which the run comes to them.
  using Plan = std::vector<std::vector<Place>>;

  /// How much of the files the run needs: what describes the datasets, and their times; all of some
  /// datasets; all of them.
  enum class Need { Times, Parts, All };
  /// Takes files that need not exist. If all of them is needed and they fit, begins at once.
  ReadAhead(const MyVector<std::string>& paths, Need need);
  /// Waits for nothing: a request that is on its way may end after this object.
  ~ReadAhead();
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  /// Whether there is any use in a plan.
  bool NeedsPlan() const { return mNeedsPlan; }
  /// Begins with what the plan says.
  void Follow(Plan plan);
  /// Whether a plan is followed. Of files that are read, what the system reads ahead by itself is
  /// in the way then.
  bool HasPlan() const { return mNeedsPlan && mpWork != nullptr; }
  bool Reads(std::size_t file) const { return mpWork != nullptr && mpWork->Reads(file); }
  /// The run has come to this dataset of the plan, and needs no more of those before.
  void Reach(std::size_t dataset);

  /// What the run reads next of the dataset that it has come to: these columns of a file from a row
  /// on, and then the same of the files that follow.
  struct Rows {
    std::size_t mFile = 0;
    std::uint64_t mFirstColumn = 0;
    std::uint64_t mEndColumn = 1;  // times come first
    std::uint64_t mRow = 0;
    std::uint64_t mEndRow = std::numeric_limits<std::uint64_t>::max();  // in this file
  };
  void Approach(const Rows& rows);
  /// Whether a plan is followed because the files do not fit in memory, so that what is read twice
  /// is fetched twice.
  bool IsMemoryShort() const { return mIsMemoryShort && HasPlan(); }

  /// Reads no more of a file, because the run needs little of it.
  void LeaveOut(std::size_t file);

  /// What the threads share.
  class Work {
   public:
    virtual ~Work() = default;
    /// What each thread does.
    virtual void Run() = 0;
    virtual void Reach(std::size_t /*dataset*/) {}
    virtual void Approach(const Rows& /*rows*/) {}
    virtual void LeaveOut(std::size_t file) = 0;
    virtual bool Reads(std::size_t /*file*/) const { return true; }
    virtual void End() = 0;
  };

 private:
  void Begin(const std::shared_ptr<Work>& work, int threads);

  std::vector<std::string> mPaths;
  Need mNeed;
  bool mIsMemoryShort = false;
  bool mNeedsPlan = false;
  std::shared_ptr<Work> mpWork;  // null if there is nothing to do
};
