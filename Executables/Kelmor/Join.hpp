// The stages of a join. Each stage says what is its own about one dataset; ForEachDataset does what
// is the same for all.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Executables/Series/Inputs.hpp"
#include "Executables/Series/JoinOptions.hpp"
#include "Executables/Series/Progress.hpp"
#include "Executables/Series/SelectTimeSteps.hpp"

/// Everything that a stage works with.
struct JoinRun {
  const JoinOptions& mOptions;
  Inputs& mInputs;
  CachedH5File& mOutput;
  Progress& mProgress;
};

/// One dataset to be joined, and the files that hold it.
struct JoinTask {
  const std::string& mName;
  const std::vector<int>& mHolders;
};

/// Which steps of a dataset survive: a list of runs per holder, and what is told of them.
struct SelectedSteps {
  std::vector<std::vector<StepRun>> mRuns;
  std::int64_t mKept = 0;
  std::int64_t mTotal = 0;
  double mMaximumGap = 0;
};

/// Runs the selection over the times of all holders.
SelectedSteps SelectSteps(const JoinOptions& options, const std::vector<MyVector<double>>& times);
/// Tells its result, if verbose.
void PrintSelection(const JoinRun& run, const JoinTask& task, const SelectedSteps& steps);

/// Joins the datasets one after the other, tells the progress, and lets the file cache check its
/// size after each.
void ForEachDataset(JoinRun& run, const Holders& datasets,
                    const std::function<void(JoinRun&, const JoinTask&)>& join);

void JoinVersion(JoinRun& run, const JoinTask& task);
void JoinDat(JoinRun& run, const JoinTask& task);
void JoinCoef(JoinRun& run, const JoinTask& task);
void JoinTdm(JoinRun& run, const JoinTask& task);
void JoinTxt(JoinRun& run, const JoinTask& task);
