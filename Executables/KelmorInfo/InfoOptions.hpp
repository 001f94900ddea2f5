#pragma once

#include <string>

#include "Executables/KelmorInfo/ShowOptions.hpp"
#include "Executables/Series/JoinOptions.hpp"
#include "Utils/CommandLine/CommandLineParser.hpp"

/// What a run of the program was asked for.
struct InfoOptions {
  enum class Mode { List, Plan, Check, View, Salvage, Show };

  /// Reads the command line; fails on an option that the mode does not have.
  InfoOptions(int argc, char** argv);
  explicit InfoOptions(const CommandLineParser& parser);

  Mode mMode;
  bool mJson;
  std::string mPicture;  // file to draw the plan to, or empty
  std::string mJoined;   // file to check, or empty
  std::string mView;     // file to make, or empty
  std::string mSalvage;  // file to make of what is whole of one, or empty
  ShowOptions mShow;
  JoinOptions mJoin;  // of the join that is planned, checked, viewed or shown; the files
};

/// Whether the command line asks for a plan, as far as that can be said before it is read.
bool AsksForPlan(int argc, char** argv);
