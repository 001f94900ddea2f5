// One line on the terminal that tells how far a run has come, and is gone when the run ends.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

/// What the line says: "joining tensors: dataset 3 of 9, 1.23 MiB of 4.56 MiB, 20.5 MiB/s, 2.0 sec
/// left". Rate and time left stay out of it while they would be guesses.
std::string ProgressText(const std::string& stage, const std::string& counted, std::uint64_t number,
                         std::uint64_t count, std::uint64_t bytes, std::uint64_t totalBytes,
                         double seconds);

/// Shows the line on standard error while that is a terminal that can erase it, unless the
/// environment variable VEXA_NO_PROGRESS is set; else does nothing. It is drawn at most ten times a
/// second, and makes room for error reports. There is one at a time.
class Progress {
 public:
  /// Bytes are those of input files, as they lie on disk; 0 if they are not told. What is counted
  /// is a "dataset" or a "file".
  Progress(bool isWanted, std::uint64_t count, std::uint64_t totalBytes,
           std::string counted = "dataset");
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// The next of what is counted begins, at this stage of the run.
  void Next(const std::string& stage);
  /// The part `done` of `all` of something that takes that many bytes has been dealt with.
  void Advance(std::uint64_t bytes, std::uint64_t done = 1, std::uint64_t all = 1);

 private:
  using Clock = std::chrono::steady_clock;
  void Update();

  bool mIsShown;
  std::string mStage;
  std::string mCounted;
  std::uint64_t mNumber = 0;
  std::uint64_t mCount;
  double mBytes = 0;
  std::uint64_t mTotalBytes;
  Clock::time_point mStart;
  Clock::time_point mNextUpdate;
};
