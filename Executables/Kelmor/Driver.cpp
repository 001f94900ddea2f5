#include "Executables/Kelmor/Driver.hpp"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Executables/Series/Output.hpp"
#include "Executables/Series/SteppedSeries.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/ErrorHandling/TerminateHandler.hpp"
#include "Utils/HDF5/StringElements.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Process/Printable.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"

namespace {

// Version records are joined first, but told last.
void PrintFound(const std::vector<Dataset>& datasets) {
  const std::vector<SeriesKind>& kinds = SeriesKinds();
  for (std::size_t i = 1; i <= kinds.size(); ++i) {
    const SeriesKind& kind = kinds[i % kinds.size()];
    const auto found = std::ranges::count(datasets, &kind, &Dataset::mpKind);
    if (found > 0) {
      std::cout << "found " << found << " " << kind.mExtension << "-datasets" << std::endl;
    }
  }
}

// Tells a person at a terminal, and nobody else, what a join does as described but hardly anyone
// means.
void TellTerminal(const std::string& text) {
  if (isatty(STDERR_FILENO) == 1) {
    std::cerr << "Kelmor: " << Vexa::Printable(text) << std::endl;
  }
}

void TellOfUnknownOptions(const CommandLineParser& parser) {
  std::vector<std::string> unknown;
  for (const auto& [key, value] : parser.UnusedOptions()) {
    unknown.push_back("-" + key + " with its value '" + value + "'");
  }
  if (!unknown.empty()) {
    TellTerminal("ignoring what is no option: " + ListNames(unknown, unknown.size()));
  }
}

// Which files had steps, and which of them lost all.
class WipedFiles {
 public:
  explicit WipedFiles(const Inputs& inputs)
      : mInputs(inputs), mFates(static_cast<std::size_t>(inputs.Size()), Fate::NoSteps) {}

  void Note(const Series& series) {
    const auto* stepped = dynamic_cast<const SteppedSeries*>(&series);
    const std::size_t files = stepped == nullptr ? 0 : stepped->Steps().mRuns.size();
    for (std::size_t i = 0; i < files; ++i) {
      Fate& fate = mFates[static_cast<std::size_t>(stepped->FileOf(i))];
      if (!stepped->Steps().mRuns[i].empty()) {
        fate = Fate::Kept;
      } else if (stepped->StepsIn(i) > 0 && fate == Fate::NoSteps) {
        fate = Fate::Wiped;
      }
    }
  }

  void Tell() const {
    std::vector<std::string> names;
    for (std::size_t file = 0; file < mFates.size(); ++file) {
      if (mFates[file] == Fate::Wiped) {
        names.push_back(mInputs.GivenName(static_cast<int>(file)));
      }
    }
    if (!names.empty()) {
      TellTerminal("no step was kept of " + ListNames(names, 6) + "; KelmorInfo -plan tells more");
    }
  }

 private:
  enum class Fate { NoSteps, Wiped, Kept };
  const Inputs& mInputs;
  std::vector<Fate> mFates;
};

void JoinDatasets(const SeriesRun& run, const std::vector<Dataset>& datasets, CachedH5File& output,
                  WipedFiles& wiped) {
  for (const SeriesKind& kind : SeriesKinds()) {
    for (const Dataset& dataset : datasets) {
      if (dataset.mpKind == &kind) {
        run.mInputs.Ahead().Reach(static_cast<std::size_t>(&dataset - datasets.data()));
        run.mProgress.Next("joining " + kind.mTitle);
        const auto series = MakeSeries(run, dataset);
        series->Join(output);
        wiped.Note(*series);
        TheCachedH5FileHolder().CheckForEmergencyWriteCache();
      }
    }
    if (run.mOptions.mVerbose && !kind.mFarewell.empty()) {
      std::cout << kind.mFarewell << std::endl;
    }
  }
}

void CleanUp(Inputs& inputs, CachedH5File& output, const JoinOptions& options) {
  const bool verbose = options.mVerbose;
  if (verbose) {
    std::cout << "all data processed, starting cleanup\n"
              << "clearing input H5-Files" << std::endl;
  }
  inputs.RequireUnchanged();
  inputs.Clear();
  const Vexa::FileDescriptor written = output.Hold();
  output.SetUnfinished(false);
  CachedH5FileHolder& holder = TheCachedH5FileHolder();
  if (verbose) {
    holder.WriteInfo(std::cout, 0);
    std::cout << "purging H5-caches though PurgeCache()" << std::endl;
  }
  holder.PurgeCache();
  FlushOutputToDisk(written, options.mOutput, "the join");
  if (verbose) {
    std::cout << "H5-caches purged.\n";
    holder.WriteInfo(std::cout, 2);
    std::cout << "exit" << std::endl;
  }
}

}  // namespace

void JoinFiles(const CommandLineParser& parser) {
  const JoinOptions options(parser);
  TellOfUnknownOptions(parser);
  Vexa::ReportUnexpectedExit();
  const Vexa_H5::StringConversion conversion;
  if (options.mVerbose) {
    std::cout << "opening " << options.mInputs.Size() << " input files" << std::endl;
  }
  Inputs inputs(options.mInputs, options.Needs());
  const std::string& OutputFile = options.mOutput;
  REQUIRE(!FileExists(OutputFile), "OutputFile " << OutputFile << " already exists.\n"
                                                 << "Cowardly refusing to write into it.");
  const bool isFileName = !OutputFile.empty() && !OutputFile.ends_with('/');
  REQUIRE(isFileName, "OutputFile '" << OutputFile << "' is not the name of a file");

  const std::vector<Dataset> datasets = FindDatasets(inputs, options.mSkip);
  if (options.mVerbose) {
    PrintFound(datasets);
  }
  if (datasets.empty()) {
    if (options.mVerbose) {
      std::cout << "no datasets found.  Will not create " << OutputFile << std::endl;
    }
    inputs.RequireUnchanged();
    return;
  }

  ReadAheadOf(inputs, datasets);
  // A part of a join must not pass for the whole, so the output is readable when it is finished.
  const std::unique_ptr<CachedH5File> output = CachedH5File::CreateUnfinished(OutputFile);
  WipedFiles wiped(inputs);
  {
    Progress progress(!options.mVerbose, datasets.size(), inputs.TotalBytes());
    JoinDatasets({inputs, options, progress}, datasets, *output, wiped);
    CleanUp(inputs, *output, options);
  }
  wiped.Tell();
}
