#include "Executables/KelmorInfo/InfoOptions.hpp"

#include <algorithm>
#include <iostream>
#include <set>
#include <string_view>
#include <vector>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Process/Version.hpp"
#include "Utils/StringParsing/GlobMatches.hpp"
#include "Utils/StringParsing/PathUtilities.hpp"

namespace {

using Mode = InfoOptions::Mode;

Mode ModeOf(const CommandLineParser& parser) {
  const bool plan =
      parser.Get<bool>("plan", false) || parser.KeyExists("svg") || parser.Get<bool>("draw", false);
  const bool check = parser.KeyExists("check");
  const bool view = parser.KeyExists("view");
  REQUIRE(!(plan && check), "-check goes with none of -plan, -draw and -svg.");
  REQUIRE(!(view && (plan || check)), "-view goes with none of -plan, -draw, -svg and -check.");
  const bool salvage = parser.KeyExists("salvage");
  REQUIRE(!(salvage && (plan || check || view)), "-salvage goes with no other mode.");
  const bool show = parser.KeyExists("show");
  REQUIRE(!(show && (plan || check || view || salvage)), "-show goes with no other mode.");
  if (show) {
    return Mode::Show;
  }
  if (salvage) {
    return Mode::Salvage;
  }
  return plan ? Mode::Plan : check ? Mode::Check : view ? Mode::View : Mode::List;
}

// Some options not every mode has.
void RequireOptionsOf(Mode mode, const CommandLineParser& parser) {
  const struct {
    const char* mKey;
    std::set<Mode> mModes;
  } restricted[] = {{"DeltaT", {Mode::Plan, Mode::Check, Mode::View, Mode::Show}},
                    {"NoWipe", {Mode::Plan, Mode::Check, Mode::View, Mode::Show}},
                    {"json", {Mode::List, Mode::Plan, Mode::Check, Mode::Salvage, Mode::Show}},
                    {"o", {Mode::Plan}},
                    {"NoGzip", {Mode::Plan, Mode::Check, Mode::View, Mode::Salvage, Mode::Show}},
                    {"svg", {Mode::Plan}},
                    {"draw", {Mode::Plan}},
                    {"cachesize", {Mode::Plan, Mode::Check, Mode::View, Mode::Salvage, Mode::Show}},
                    {"at", {Mode::Show}},
                    {"from", {Mode::Show}},
                    {"to", {Mode::Show}},
                    {"columns", {Mode::Show}},
                    {"csv", {Mode::Show}}};
  for (const auto& option : restricted) {
    const bool isAllowed = option.mModes.contains(mode);
    REQUIRE(isAllowed || !parser.KeyExists(option.mKey),
            "Option '-" << option.mKey << "' means nothing "
                        << (mode == Mode::Check  ? "with -check."
                            : mode == Mode::Plan ? "with -plan."
                            : mode == Mode::View ? "with -view."
                            : mode == Mode::Salvage ? "with -salvage."
                            : mode == Mode::Show ? "with -show."
                            : option.mModes == std::set{Mode::Show} ? "without -show."
                            : option.mModes == std::set{Mode::Plan} ? "without -plan."
                                                 : "without -plan, -check, -view or -show."));
  }
}

std::string HelpText() {
  return R"(
Usage:  KelmorInfo [options] file [file ...]
        KelmorInfo -plan [options] file [file ...]
        KelmorInfo -check joined.h5 [options] file [file ...]
        KelmorInfo -view view.h5 [options] file [file ...]
        KelmorInfo -salvage whole.h5 [options] file
        KelmorInfo -show dataset [options] file [file ...]

Looks at h5-files that Kelmor joins.  Without -plan, -check, -view,
-salvage and -show, lists the datasets of each file and of all files
together.
No file is ever changed.
Note: the order of files is SIGNIFICANT with -plan, -check, -view and -show.

BASIC OPTIONS:
  -plan           # Say what Kelmor would do with these files: which
                  # time-steps it would keep, what disagrees, and
                  # what would be lost without a word.
  -draw           # With or instead of -plan: draw it with characters.
  -svg string     # With or instead of -plan: draw the plan to a new file.
  -check string   # Prove that this file is what Kelmor makes of the others.
  -view string    # Make a small new file that reads like the join and
                  # refers to the files: they must stay where they are.
  -salvage string # Make a new file of what is whole of one that is
                  # damaged: the steps before the first that cannot be read.
  -show string    # Print the rows, steps or text of this dataset, as if
                  # the files were joined.
  -json           # Print as JSON (not with -view).
  -skip Glob      # skip datasets that match Glob
  -v              # be verbose: legends and version histories
  -h              # Show this help message and exit.
  -version        # Print the version and exit.
OPTIONS OF -show:
  -at double      # Only the last step that is not after this time, with
                  # the values of coefficients or of a tensor.
                  # Negative: -at " -3".
  -from double, -to double   # Only steps with times from ... to ...
  -columns string # Only these columns: names or numbers from 0, as in a,b
  -csv            # Print as CSV.
OPTIONS OF THE JOIN, with -plan, -check, -view and -show as for Kelmor:
  -DeltaT double  # Only time-steps separated by >=DeltaT will be kept
                  # (default 1e-10)
  -NoWipe         # Do **NOT** wipe non-monotonic time-steps
  -o string       # with -plan: say if this output file exists already
  -cachesize, -NoGzip   # accepted; they change no plan and no check
                  # (-cachesize bounds what -show holds of long chunks)
)";
}

bool IsAmong(const std::string& name, const MyVector<std::string>& names) {
  const std::string path = Realpath(name);
  return std::ranges::any_of(names, [&](const auto& other) { return Realpath(other) == path; });
}

}  // namespace

InfoOptions::InfoOptions(int argc, char** argv)
    : InfoOptions(CommandLineParser(
          argc, argv, HelpText(),
          MyVector<std::string>{"v", "NoWipe", "NoGzip", "plan", "json", "csv", "draw"})) {}

InfoOptions::InfoOptions(const CommandLineParser& parser)
    : mMode(ModeOf(parser)),
      mJson(parser.Get<bool>("json", false)),
      mDraws(parser.Get<bool>("draw", false)),
      mPicture(parser.Get<std::string>("svg", "")),
      mJoined(parser.Get<std::string>("check", "")),
      mView(parser.Get<std::string>("view", "")),
      mSalvage(parser.Get<std::string>("salvage", "")),
      mShow(parser),
      mJoin(
          parser, JoinOptions::Output::Optional,
          mMode == Mode::List ? JoinOptions::Files::MayBeMissing : JoinOptions::Files::MustExist) {
  RequireOptionsOf(mMode, parser);
  parser.TerminateIfThereAreUnusedOptions();
  REQUIRE(!(mJson && mDraws), "-draw goes not with -json.");
  REQUIRE(!mJoin.mInputs.empty(), "No file was given.");
  if (!mJoin.mSkip.empty()) {
    GlobMatches(mJoin.mSkip, "");  // fails if it is no glob
  }
  REQUIRE(mMode!=Mode::Check || FileExists(mJoined), "File " << mJoined << " not found");
  REQUIRE(mMode!=Mode::Check || !IsAmong(mJoined, mJoin.mInputs),
          "File " << mJoined << " is given twice, to be checked and as one of its inputs.");
  REQUIRE(mMode!=Mode::View || !FileExists(mView),
          "File " << mView << " already exists.\nCowardly refusing to write into it.");
  REQUIRE(mMode!=Mode::Salvage || !FileExists(mSalvage),
          "File " << mSalvage << " already exists.\nCowardly refusing to write into it.");
  REQUIRE(mMode!=Mode::Salvage || mJoin.mInputs.size()==1, "-salvage takes one file at a time.");
  REQUIRE(mPicture.empty() || DirectoryExists(GetDirectoryFromPath(mPicture)),
          "There is no folder for " << mPicture << ".");
  REQUIRE(mPicture.empty() || !FileExists(mPicture),
          "File " << mPicture << " already exists.\nCowardly refusing to write into it.");
}

bool TellsOfProgram(int argc, char** argv) {
  const std::vector<std::string_view> arguments(argv + std::min(argc, 1), argv + argc);
  for (const std::string_view argument : arguments) {
    if (argument == "--") {
      return false;
    }
    if (argument == "-h" || argument == "-help" || argument == "--help") {
      std::cout << HelpText();
      return true;
    }
    if (argument == "-version" || argument == "--version") {
      std::cout << "KelmorInfo " VEXA_VERSION "\n";
      return true;
    }
  }
  return false;
}

std::string UsageText() {
  const std::string help = HelpText();
  const std::size_t begin = help.find("Usage:");
  return help.substr(begin, help.find("\n\n", begin) + 1 - begin);
}
