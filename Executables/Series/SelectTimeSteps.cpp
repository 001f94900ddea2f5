#include "Executables/Series/SelectTimeSteps.hpp"

#include <algorithm>
#include <utility>

std::int64_t SelectTimeSteps(const std::vector<MyVector<double>>& times,
                             std::vector<MyVector<bool>>& keep, double DeltaT, bool NoWipe,
                             double& maximumGap) {
  keep.clear();
  std::int64_t total = 0;
  for (const MyVector<double>& fileTimes : times) {
    keep.emplace_back(MV::Size(fileTimes.size()), true);
    total += fileTimes.Size();
  }
  if (NoWipe) {
    return total;
  }
  // Backwards, so that the step kept last decides: a file that restarts at an earlier time stands
  // later on the command line and wins.
  StepSelection selection(DeltaT);
  for (std::size_t file = times.size(); file-- > 0;) {
    selection.Take(times[file], 0);
    std::ranges::fill(keep[file], false);
    for (const StepRun& run : selection.EndFile()) {
      std::fill(keep[file].begin() + run.mFirst, keep[file].begin() + run.mOnePastLast, true);
    }
  }
  maximumGap = selection.MaximumGap();
  return selection.Kept();
}

void StepSelection::Take(std::span<const double> times, std::uint64_t first) {
  for (std::uint64_t i = times.size(); i-- > 0;) {
    const double gap = mLast - times[i];
    // A gap that is not a number wipes the step.
    if (mKept > 0 && !(gap >= mDeltaT)) {
      continue;
    }
    ++mKept;
    mMaximumGap = std::max(mMaximumGap, gap);
    mLast = times[i];
    const std::uint64_t step = first + i;
    if (mRuns.empty() || mRuns.back().mFirst != step + 1) {
      mRuns.push_back({step, step + 1});
    } else {
      mRuns.back().mFirst = step;
    }
  }
}

std::vector<StepRun> StepSelection::EndFile() {
  std::ranges::reverse(mRuns);
  return std::exchange(mRuns, {});
}

unsigned Blocksize(int n) {
  unsigned b = 1;
  for (unsigned k = 1; static_cast<double>(n) / k > b; k += 2) {
    b *= 2;
  }
  return b;
}
