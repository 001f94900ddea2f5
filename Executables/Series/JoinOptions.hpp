#pragma once

#include <cstdint>
#include <string>

#include "Executables/Series/ReadAhead.hpp"
#include "Utils/CommandLine/CommandLineParser.hpp"
#include "Utils/Containers/MyVector.hpp"

/// What a join was asked for, by a program that makes it or one that plans or checks it.
struct JoinOptions {
  /// Reads and checks the options in the documented order; the byte limit goes to the file cache.
  /// Programs that write no output do not need its name, and some tell of missing files later.
  enum class Output { Required, Optional };
  enum class Files { MustExist, MayBeMissing };
  explicit JoinOptions(const CommandLineParser& parser, Output output = Output::Required,
                       Files files = Files::MustExist);

  /// How much of the inputs the run needs; that steps are wiped is not known yet.
  ReadAhead::Need Needs() const {
    return mSkip.empty() ? ReadAhead::Need::All : ReadAhead::Need::Parts;
  }

  double mDeltaT;
  bool mVerbose;
  bool mNoWipe;
  bool mNoGzip;
  std::uint64_t mCacheSize;  // bytes
  std::string mSkip;         // a glob, or empty for none
  std::string mOutput;
  MyVector<std::string> mInputs;
};
