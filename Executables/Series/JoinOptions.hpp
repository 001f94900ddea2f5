#pragma once

#include <cstdint>
#include <string>

#include "Utils/CommandLine/CommandLineParser.hpp"
#include "Utils/Containers/MyVector.hpp"

/// What a join was asked for, by a program that makes it or one that plans or checks it.
struct JoinOptions {
  /// Reads and checks the options in the documented order; the byte limit goes to the file cache.
  /// Programs that write no output do not need its name.
  enum class Output { Required, Optional };
  explicit JoinOptions(const CommandLineParser& parser, Output output = Output::Required);

  /// Whether the run has a use for everything in the inputs, but for the steps that are wiped.
  bool ReadsAll() const { return mSkip.empty(); }

  double mDeltaT;
  bool mVerbose;
  bool mNoWipe;
  bool mNoGzip;
  std::uint64_t mCacheSize;  // bytes
  std::string mSkip;         // a glob, or empty for none
  std::string mOutput;
  MyVector<std::string> mInputs;
};
