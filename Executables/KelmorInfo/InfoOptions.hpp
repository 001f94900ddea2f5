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
  bool mDraws;           // the plan, with characters
  std::string mPicture;  // file to draw the plan to, or empty
  std::string mJoined;   // file to check, or empty
  std::string mView;     // file to make, or empty
  std::string mSalvage;  // file to make of what is whole of one, or empty
  ShowOptions mShow;
  JoinOptions mJoin;  // of the join that is planned, checked, viewed or shown; the files
};

/// Prints the help or the version if the command line asks for it before any "--"; returns whether
/// it does. All else on the command line may be wrong then.
bool TellsOfProgram(int argc, char** argv);

/// The lines of the help that tell how the program is started, beginning with "Usage:".
std::string UsageText();
