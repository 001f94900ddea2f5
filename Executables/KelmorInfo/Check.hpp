// Proves that a file is what a join makes of some files: recomputes which steps are kept, and
// compares every one of them, bit for bit, with the file it comes from.
#pragma once

#include <cstdint>
#include <string>

#include "Executables/KelmorInfo/InputFiles.hpp"
#include "Executables/Series/JoinOptions.hpp"

struct CheckResult {
  std::string mDifference;  // the first one; empty if there is none
  std::uint64_t mDatasets = 0;
  std::uint64_t mSteps = 0;
  std::uint64_t mBytes = 0;  // that were compared
};

/// `joined` holds the one file. Fails where the join itself would fail. Besides texts and the
/// steps' times and offsets, some mebibytes of values are in memory at a time, or one chunk of
/// them.
CheckResult CheckJoin(InputFiles& joined, InputFiles& files, const JoinOptions& options);
