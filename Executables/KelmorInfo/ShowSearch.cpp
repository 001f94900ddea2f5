#include "Executables/KelmorInfo/ShowSearch.hpp"

#include <algorithm>
#include <cmath>

#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/KelmorInfo/UsageError.hpp"

void StepSearch::LookForOne(std::uint64_t step, double time) {
  if (std::isnan(time)) {
    return;
  }
  mFirst = mHasTimes ? std::min(mFirst, time) : time;
  mHasTimes = true;
  if (time <= *mOptions.mAt && (mFound.empty() || time >= mBest)) {
    mFound = {{step, step + 1}};
    mBest = time;
  }
}

void StepSearch::Look(std::uint64_t first, std::span<const double> times) {
  for (std::uint64_t i = 0; i < times.size(); ++i) {
    const std::uint64_t step = first + i;
    if (mOptions.mAt) {
      LookForOne(step, times[i]);
    } else if (!mOptions.HasRange() || (times[i] >= mOptions.mFrom && times[i] <= mOptions.mTo)) {
      if (mFound.empty() || mFound.back().mOnePastLast != step) {
        mFound.push_back({step, step});
      }
      mFound.back().mOnePastLast = step + 1;
    }
  }
}

std::vector<StepRun> StepSearch::Found() const {
  const bool isFound = !mOptions.mAt || !mFound.empty();
  if (!isFound) {
    throw UsageError(mDataset + " has no step at or before t = " + RoundTrip(*mOptions.mAt) +
                     (mHasTimes ? ": the first is at t = " + RoundTrip(mFirst)
                                : ": it has no steps with a time"));
  }
  return mFound;
}
