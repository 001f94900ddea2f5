// Proves that a file is what a join makes of some files: recomputes which steps are kept, and
// compares every one of them, bit for bit, with the file it comes from; or, where the file is a
// view, where each is to be read with where it stands. What a view names is not opened for that.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "Executables/Series/JoinOptions.hpp"

/// What is not as a join would have made it.
struct Difference {
  std::string mName;    // of the dataset or group
  std::string mReason;  // on one line, with the name
};

struct CheckResult {
  std::vector<Difference> mDifferences;  // the first of each dataset and group, at most a thousand
  std::uint64_t mDiffering = 0;          // datasets and groups
  // What was compared and is the same.
  std::uint64_t mDatasets = 0;
  std::uint64_t mSteps = 0;
  std::uint64_t mBytes = 0;
  bool mIsView = false;  // instead of values, where they are to be read was compared

  bool IsRight() const { return mDiffering == 0; }
};

/// Goes on after a difference; what cannot be read of a joined file that opens is one. Fails where
/// the join itself would fail, and where a file does not open or has changed in the end. Besides
/// texts and the steps' times and offsets, some mebibytes of values are in memory at a time, or one
/// chunk of them.
CheckResult CheckJoin(const std::string& joinedName, const JoinOptions& options);

void PrintCheck(std::ostream& os, const CheckResult& result, const std::string& joinedName,
                const JoinOptions& options);
void PrintCheckAsJson(std::ostream& os, const CheckResult& result, const std::string& joinedName,
                      const JoinOptions& options);
