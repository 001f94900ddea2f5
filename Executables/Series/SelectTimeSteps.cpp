#include "Executables/Series/SelectTimeSteps.hpp"

#include <algorithm>

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
  maximumGap = 0.0;
  std::int64_t kept = 0;
  // The gap of the step kept first is measured from 0.0: with a negative final time the reported
  // gap is at least its magnitude.
  double last = 0.0;
  // Backwards, so that the step kept last decides: a file that restarts at an earlier time stands
  // later on the command line and wins.
  for (std::size_t file = times.size(); file-- > 0;) {
    for (std::uint64_t step = times[file].size(); step-- > 0;) {
      const double t = times[file][step];
      const double gap = last - t;
      // A gap that is not a number wipes the step.
      const bool isKept = kept == 0 || gap >= DeltaT;
      keep[file][step] = isKept;
      if (isKept) {
        ++kept;
        maximumGap = std::max(maximumGap, gap);
        last = t;
      }
    }
  }
  return kept;
}

unsigned Blocksize(int n) {
  unsigned b = 1;
  for (unsigned k = 1; static_cast<double>(n) / k > b; k += 2) {
    b *= 2;
  }
  return b;
}

std::vector<StepRun> KeptRuns(const MyVector<bool>& keep) {
  std::vector<StepRun> runs;
  for (std::uint64_t step = 0; step < keep.size(); ++step) {
    if (keep[step] && (step == 0 || !keep[step - 1])) {
      runs.push_back({step, step});
    }
    if (keep[step]) {
      runs.back().mOnePastLast = step + 1;
    }
  }
  return runs;
}
