// Runs a tool the way its users do, and tells what came of it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

using Arguments = std::vector<std::string>;

struct RunResult {
  int mStatus = -1;      // exit status; -1 if a signal ended the run, or it took too long
  std::string mOutput;   // standard output
  std::string mErrors;   // standard error
  std::string mReports;  // what the run left in the error file of its run directory
  // Largest resident set, but not less than what this process has when it starts the tool; 0 under
  // a sanitizer, whose memory would be measured.
  std::uint64_t mPeakBytes = 0;
};

/// Runs a program in a directory and waits for its end.
RunResult RunProgram(const std::string& program, const std::string& directory,
                     const Arguments& arguments);
