// The files that were named on the command line, and whether each can be opened.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Executables/Series/Inputs.hpp"

/// Why a file cannot be opened, and what may help; the latter may be empty.
struct OpenProblem {
  std::string mReason;
  std::string mAdvice;
};

struct InputFile {
  std::string mName;  // as given
  std::uint64_t mBytes = 0;
  bool mOpens = true;
  OpenProblem mProblem = {};  // if it does not open
  std::string mStamp = {};    // of FileStamp() before it was opened
};

/// What is said of a file that does not open, ending with a newline; empty for one that does.
std::string WhyNotOpened(const InputFile& file);

/// Tries every file, for reading only, and lends those that open to who reads them.
class InputFiles {
 public:
  explicit InputFiles(const MyVector<std::string>& names);

  const std::vector<InputFile>& Files() const { return mFiles; }
  const InputFile& operator[](int file) const { return mFiles[static_cast<std::size_t>(file)]; }

  /// Fails, with all of them, unless all files open.
  void RequireAllOpen() const;

  /// Fails, with those that are not, unless the files that Opened() lends are as they were before
  /// they were tried.
  void RequireUnchanged() const;

  /// Lends the files that open, in order; NumberOf() tells which of all files each of them is.
  Inputs& Opened();
  int NumberOf(int opened) const { return mNumbers[static_cast<std::size_t>(opened)]; }
  const InputFile& OpenedFile(int opened) const { return (*this)[NumberOf(opened)]; }

  /// Opens one of the files, which must be one that opens, for a caller that reads one file after
  /// the other: it stays open between its datasets however many files there are. Must not be called
  /// while the files from Opened() are in use: both would open the same file.
  Inputs OpenAlone(int file) const { return Inputs({(*this)[file].mName}); }

 private:
  std::vector<InputFile> mFiles;
  std::vector<int> mNumbers;
  std::unique_ptr<Inputs> mpInputs;  // once they are asked for
};
