#include "Executables/Kelmor/Join.hpp"

#include <iostream>

#include "Utils/Store/CachedH5FileHolder.hpp"

SelectedSteps SelectSteps(const JoinOptions& options, const std::vector<MyVector<double>>& times) {
  SelectedSteps steps;
  std::vector<MyVector<bool>> keep;
  steps.mKept = SelectTimeSteps(times, keep, options.mDeltaT, options.mNoWipe, steps.mMaximumGap);
  for (const MyVector<bool>& fileKeep : keep) {
    steps.mRuns.push_back(KeptRuns(fileKeep));
    steps.mTotal += fileKeep.Size();
  }
  return steps;
}

void PrintSelection(const JoinRun& run, const JoinTask& task, const SelectedSteps& steps) {
  if (run.mOptions.mVerbose) {
    std::cout << task.mName << " keeping " << steps.mKept << " steps out of " << steps.mTotal
              << ", maximum time-gap is " << steps.mMaximumGap << std::endl;
  }
}

void ForEachDataset(JoinRun& run, const Holders& datasets,
                    const std::function<void(JoinRun&, const JoinTask&)>& join) {
  for (const auto& [name, holders] : datasets) {
    run.mProgress.NextDataset();
    join(run, {name, holders});
    TheCachedH5FileHolder().CheckForEmergencyWriteCache();
  }
}
