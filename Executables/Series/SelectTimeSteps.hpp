#pragma once

#include <cstdint>
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

/// The smallest power of two b = 2^j with n / (2j + 1) <= b, j being at least 1; 1 for n < 2.
unsigned Blocksize(int n);

/// Steps [mFirst, mOnePastLast) of one file.
using StepRun = Tables::RowRun;

/// The kept steps of one file as runs, in order.
std::vector<StepRun> KeptRuns(const MyVector<bool>& keep);
