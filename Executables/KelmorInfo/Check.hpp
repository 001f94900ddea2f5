// Proves that a file is what a join makes of some files: recomputes which steps are kept, and
// compares every one of them, bit for bit, with the file it comes from; or, where the file is a
// view, where each is to be read with where it stands. What a view names is not opened for that.
#pragma once

#include <cstdint>
#include <string>

#include "Executables/Series/JoinOptions.hpp"

struct CheckResult {
  std::string mDifference;  // the first one; empty if there is none
  std::uint64_t mDatasets = 0;
  std::uint64_t mSteps = 0;
  std::uint64_t mBytes = 0;  // that were compared
  bool mIsView = false;      // instead of values, where they are to be read was compared
};

/// Fails where the join itself would fail, and where a file does not open or has changed in the
/// end. Besides texts and the steps' times and offsets, some mebibytes of values are in memory at a
/// time, or one chunk of them.
CheckResult CheckJoin(const std::string& joinedName, const JoinOptions& options);
