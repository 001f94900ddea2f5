#include "Executables/KelmorInfo/InfoDriver.hpp"

#include <algorithm>
#include <csignal>
#include <iostream>
#include <optional>

#include "Executables/KelmorInfo/Check.hpp"
#include "Executables/KelmorInfo/InfoOptions.hpp"
#include "Executables/KelmorInfo/Listing.hpp"
#include "Executables/KelmorInfo/Plan.hpp"
#include "Executables/KelmorInfo/PlanDrawing.hpp"
#include "Executables/KelmorInfo/PlanPicture.hpp"
#include "Executables/KelmorInfo/PlanReport.hpp"
#include "Executables/KelmorInfo/Salvage.hpp"
#include "Executables/KelmorInfo/Show.hpp"
#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/KelmorInfo/UsageError.hpp"
#include "Executables/KelmorInfo/View.hpp"
#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/ErrorHandling/SigpipeHeldBack.hpp"
#include "Utils/HDF5/StringElements.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"

namespace {

// A program may have this many files open by default, with room for its own.
constexpr std::size_t sManyFiles = 500;
constexpr std::size_t sFilesBesides = 100;

// What was printed is the result of the run: a part of it must not pass for the whole.
void FinishOutput() {
  std::cout.flush();
  REQUIRE(std::cout.good(), "Writing to standard output failed");
}

int List(const InfoOptions& options) {
  const Listing listing = MakeListing(options.mJoin);
  if (options.mJson) {
    PrintListingAsJson(std::cout, listing);
  } else {
    PrintListing(std::cout, listing, options.mJoin.mVerbose);
  }
  FinishOutput();
  RequireNoProblems(listing);
  return 0;
}

int Check(const InfoOptions& options) {
  const CheckResult result = CheckJoin(options.mJoined, options.mJoin);
  if (options.mJson) {
    PrintCheckAsJson(std::cout, result, options.mJoined, options.mJoin);
  } else {
    PrintCheck(std::cout, result, options.mJoined, options.mJoin);
  }
  FinishOutput();
  return result.IsRight() ? 0 : 1;
}

int View(const InfoOptions& options) {
  const ViewResult result = MakeView(options.mView, options.mJoin);
  const std::size_t files = options.mJoin.mInputs.size();
  std::cout << Vexa::Printable(options.mView) << " is a view of " << Counted(files, "file") << ": "
            << Counted(result.mDatasets, "dataset") << ", " << Size(result.mBytes)
            << " as if joined\n";
  if (files > sManyFiles) {
    std::cout
        << "Whoever reads a dataset of it has up to " << files
        << " files open at once. Where the limit on open files is lower, HDF5 says nothing and "
           "reads NaN: say 'ulimit -n "
        << files + sFilesBesides << "' before, or join the files.\n";
  }
  FinishOutput();
  return 0;
}

int Salvage(const InfoOptions& options) {
  const std::vector<SalvagedDataset> datasets = Salvage(options.mSalvage, options.mJoin);
  const auto whole = std::ranges::count_if(datasets, &SalvagedDataset::IsWhole);
  if (options.mJson) {
    PrintSalvageAsJson(std::cout, options.mSalvage, options.mJoin.mInputs[0], datasets);
  } else {
    std::cout << Vexa::Printable(options.mSalvage) << " has what is whole of "
              << Vexa::Printable(options.mJoin.mInputs[0]) << ": " << whole << " of "
              << Counted(datasets.size(), "dataset") << '\n';
    PrintSalvage(std::cout, datasets);
  }
  FinishOutput();
  return static_cast<std::size_t>(whole) == datasets.size() ? 0 : 1;
}

int Show(const InfoOptions& options) {
  // Whoever looks at the first rows closes the pipe then: that is no failure.
  std::signal(SIGPIPE, SIG_DFL);
  Show(std::cout, options.mShow, options.mJoin);
  FinishOutput();
  return 0;
}

int PlanJoin(const InfoOptions& options) {
  const Plan plan = MakePlan(options.mJoin);
  if (options.mJson) {
    PrintPlanAsJson(std::cout, plan);
  } else if (options.mDraws) {
    if (PrintPlanHead(std::cout, plan, options.mJoin.mVerbose)) {
      DrawInText(std::cout, plan, OutputWidth());
    }
  } else {
    PrintPlan(std::cout, plan, options.mJoin.mVerbose);
  }
  FinishOutput();
  if (!options.mPicture.empty()) {
    WritePicture(options.mPicture, DrawPlan(plan));
  }
  return plan.Joins() ? 0 : 1;
}

// What is wrong with a command line, its user can mend: no report with a backtrace is needed for
// that.
void TellUsage(const std::string& message) {
  const SigpipeHeldBack guard;
  std::cerr << "KelmorInfo: " << message << '\n' << UsageText();
}

std::optional<InfoOptions> ReadOptions(int argc, char** argv) {
  try {
    return std::optional<InfoOptions>(std::in_place, argc, argv);
  } catch (const CodeError& error) {
    TellUsage(ReasonOf(error));
    return std::nullopt;
  }
}

int RunMode(const InfoOptions& options) {
  switch (options.mMode) {
    case InfoOptions::Mode::Plan:
      return PlanJoin(options);
    case InfoOptions::Mode::Check:
      return Check(options);
    case InfoOptions::Mode::View:
      return View(options);
    case InfoOptions::Mode::Salvage:
      return Salvage(options);
    case InfoOptions::Mode::Show:
      return Show(options);
    case InfoOptions::Mode::List:
      break;
  }
  return List(options);
}

}  // namespace

int RunInfo(int argc, char** argv) {
  if (TellsOfProgram(argc, argv)) {
    FinishOutput();
    return 0;
  }
  // It arranges how the library ends, which it does in its own way if it runs by then: with words
  // about what a damaged file left in it, or a crash.
  TheCachedH5FileHolder();
  const Vexa_H5::StringConversion conversion;
  const std::optional<InfoOptions> options = ReadOptions(argc, argv);
  try {
    return options ? RunMode(*options) : 2;
  } catch (const UsageError& error) {
    TellUsage(Vexa::Printable(error.what()));
    return 2;
  }
}
