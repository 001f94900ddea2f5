#include "Executables/KelmorInfo/Salvage.hpp"

#include <algorithm>
#include <ostream>

#include "Executables/KelmorInfo/InputFiles.hpp"
#include "Executables/KelmorInfo/JsonParts.hpp"
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

// Steps and strings are told apart; a version record has neither.
Json SalvagedAsJson(const SalvagedDataset& dataset) {
  const Series::Remains& remains = dataset.mRemains;
  const bool isKnown = dataset.mIsWritten && dataset.mKind != "ver";
  const bool isText = dataset.mKind == "txt";
  const auto countIf = [](bool isTold, std::uint64_t count) {
    return isTold ? Json(count) : Json();
  };
  return {{"name", dataset.mName},
          {"kind", dataset.mKind},
          {"is_whole", dataset.IsWhole()},
          {"is_written", dataset.mIsWritten},
          {"steps", countIf(isKnown && !isText, remains.mTotal)},
          {"kept", countIf(isKnown && !isText, remains.mKept)},
          {"strings", countIf(isKnown && isText, remains.mTotal)},
          {"kept_strings", countIf(isKnown && isText, remains.mKept)},
          {"kept_times", RangeAsJson(remains.mKeptTimes)},
          {"lost_times", RangeAsJson(remains.mLostTimes)},
          {"reason", dataset.IsWhole() ? Json() : Json(OneLine(remains.mReason))}};
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

void PrintSalvageAsJson(std::ostream& os, const std::string& name, const std::string& input,
                        const std::vector<SalvagedDataset>& datasets) {
  Json json = NewDocument();
  json["is_whole"] = std::ranges::all_of(datasets, &SalvagedDataset::IsWhole);
  json["output"] = {{"name", name}};
  json["files"] = NamesAsJson(std::vector{input});
  json["datasets"] = ArrayOf(datasets, SalvagedAsJson);
  PrintJson(os, json);
}
