#include "Executables/KelmorInfo/Salvage.hpp"

#include <ostream>

#include "Executables/KelmorInfo/InputFiles.hpp"
#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/Series/Output.hpp"
#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/Require.hpp"

namespace {

SalvagedDataset SalvageDataset(const SeriesRun& run, const Dataset& dataset, CachedH5File& output) {
  SalvagedDataset salvaged{dataset.mName, dataset.mpKind->mExtension, false, {}};
  try {
    salvaged.mRemains = MakeSeries(run, dataset)->Salvage(0, output);
    salvaged.mIsWritten = true;
  } catch (const CodeError& error) {
    // What was begun in the output is not whole.
    if (output.Exists(dataset.mName)) {
      throw;
    }
    salvaged.mRemains.mReason = ReasonOf(error);
    run.mInputs[0].CloseFile();
  }
  return salvaged;
}

std::string TimesText(const TimeRange& times) {
  return times.IsEmpty() ? ""
                         : " at t = " + RoundTrip(times.mFirst) + " ... " + RoundTrip(times.mLast);
}

}  // namespace

std::vector<SalvagedDataset> Salvage(const std::string& name, const JoinOptions& options) {
  const Vexa_H5::MuteH5Errors mute;
  const std::vector<InputFile> files = TryFiles(options.mInputs);
  RequireAllOpen(files);
  Inputs inputs(options.mInputs);
  const std::vector<Dataset> datasets = FindDatasets(inputs, options.mSkip);
  REQUIRE(!datasets.empty(), "The file has no datasets. Will not create " << name);
  std::vector<SalvagedDataset> salvaged;
  MakeOutput(name, "what was salvaged", [&](CachedH5File& output) {
    Progress progress(!options.mVerbose, datasets.size(), 0);
    for (const Dataset& dataset : datasets) {
      progress.Next("salvaging " + dataset.mpKind->mTitle);
      salvaged.push_back(SalvageDataset({inputs, options, progress}, dataset, output));
    }
    RequireUnchanged(files, inputs);
    inputs.Clear();
  });
  return salvaged;
}

void PrintSalvage(std::ostream& os, const std::vector<SalvagedDataset>& datasets) {
  AlignedLines lines({});
  for (const SalvagedDataset& dataset : datasets) {
    const Series::Remains& remains = dataset.mRemains;
    const std::uint64_t lost = remains.mTotal - remains.mKept;
    const std::string advice =
        dataset.mKind == "ver" ? "; a join of the result cannot tell its version" : "";
    lines.Add({dataset.mKind, Vexa::Printable(dataset.mName),
               dataset.IsWhole() ? "whole"
               : dataset.mIsWritten
                   ? "keeping " + std::to_string(remains.mKept) + " of " +
                         Counted(remains.mTotal, dataset.mKind == "txt" ? "string" : "step") +
                         TimesText(remains.mKeptTimes) + ", leaving out " + std::to_string(lost) +
                         TimesText(remains.mLostTimes) + ": " + OneLine(remains.mReason)
                   : "LEFT OUT: " + OneLine(remains.mReason) + advice});
  }
  lines.Print(os, "  ");
}
