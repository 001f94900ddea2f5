#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "Utils/Containers/MyVector.hpp"
#include "Utils/Tables/RowRun.hpp"

/// Decides which time steps of files that follow each other survive: times[i] are those of the i-th
/// file that holds the dataset, in that file's order. A step is kept if it lies at least DeltaT
/// before the step that is kept after it, counted from the last step of the last file backwards, so
/// that a file that restarts at an earlier time wins over the files before it. keep[i][k] says so
/// for step k of file i; the result is their number. The largest distance between two kept steps
/// goes to `maximumGap`, which NoWipe, keeping everything, leaves alone.
std::int64_t SelectTimeSteps(const std::vector<MyVector<double>>& times,
                             std::vector<MyVector<bool>>& keep, double DeltaT, bool NoWipe,
                             double& maximumGap);

/// Steps [mFirst, mOnePastLast) of one file.
using StepRun = Tables::RowRun;

/// The same decision for times that are not in memory at once. Whoever has the times hands them in
/// from the last step of the last file backwards.
class StepSelection {
 public:
  explicit StepSelection(double DeltaT) : mDeltaT(DeltaT) {}

  /// Decides about steps that lie before all that were handed in; `first` is the number of the
  /// first in its file.
  void Take(std::span<const double> times, std::uint64_t first);
  /// Ends a file. Returns its kept steps as runs, in order.
  std::vector<StepRun> EndFile();

  std::int64_t Kept() const { return mKept; }
  double MaximumGap() const { return mMaximumGap; }

 private:
  double mDeltaT;
  // The gap of the step kept first is measured from 0.0: with a negative final time the reported
  // gap is at least its magnitude.
  double mLast = 0;
  std::int64_t mKept = 0;
  double mMaximumGap = 0;
  std::vector<StepRun> mRuns;  // of the file, backwards
};

/// The smallest power of two b = 2^j with n / (2j + 1) <= b, j being at least 1; 1 for n < 2.
unsigned Blocksize(int n);
