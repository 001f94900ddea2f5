// The files that were named on the command line, and whether each can be opened.
#pragma once

#include <string>
#include <vector>

#include "Executables/Series/Inputs.hpp"

struct InputFile {
  std::string mName;  // as given
  std::uint64_t mBytes = 0;
  bool mOpens = true;
  bool mIsHdf5 = true;        // or may be: if it does not open, that is because of what it holds
  std::string mProblem = {};  // why it does not open
  std::string mAdvice = {};   // what may help then; may be empty
  std::string mStamp = {};    // of FileStamp() before it was opened
};

/// Tries to open every file, for reading only, and closes it again.
std::vector<InputFile> TryFiles(const MyVector<std::string>& names);

/// What is said of a file that does not open, ending with a newline; empty for one that does.
std::string WhyNotOpened(const InputFile& file);

/// Fails, with all of them, unless all files open.
void RequireAllOpen(const std::vector<InputFile>& files);

/// Fails, with those that are not, unless the files, which were then opened, are as they were
/// before they were tried.
void RequireUnchanged(const std::vector<InputFile>& files, const Inputs& opened);
