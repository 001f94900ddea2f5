#pragma once

#include <cstdint>
#include <string>

#include "Utils/CommandLine/CommandLineParser.hpp"
#include "Utils/Containers/MyVector.hpp"

/// The help text of the tool: usage, the note about serial programs, options.
std::string HelpText();

/// What a run of the tool was asked for.
struct Options {
  /// Reads and checks the options in the documented order; the byte limit goes to the file cache.
  /// Programs that write no output do not need its name.
  enum class Output { Required, Optional };
  explicit Options(const CommandLineParser& parser, Output output = Output::Required);

  double mDeltaT;
  bool mVerbose;
  bool mNoWipe;
  bool mNoGzip;
  std::uint64_t mCacheSize;  // bytes
  std::string mSkip;         // a glob, or empty for none
  std::string mOutput;
  MyVector<std::string> mInputs;
};
