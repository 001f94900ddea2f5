#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "Executables/KelmorInfo/ShowOptions.hpp"
#include "Executables/Series/SelectTimeSteps.hpp"

/// Finds the steps that are to be shown among kept ones, whose times it is handed in order. Times
/// that are no numbers are found only if all are wanted.
class StepSearch {
 public:
  StepSearch(const ShowOptions& options, std::string dataset)
      : mOptions(options), mDataset(std::move(dataset)) {}

  /// Looks at the times of the steps from number `first` on.
  void Look(std::uint64_t first, std::span<const double> times);

  /// Returns what was found, as runs. If one step is wanted, it is the one with the latest time
  /// that is not after it, of several the last; fails if there is none, with the first time.
  std::vector<StepRun> Found() const;

 private:
  void LookForOne(std::uint64_t step, double time);

  const ShowOptions& mOptions;
  std::string mDataset;
  std::vector<StepRun> mFound;
  bool mHasTimes = false;
  double mFirst = 0;  // the smallest time, if there are any
  double mBest = 0;   // the time of the one step found
};
