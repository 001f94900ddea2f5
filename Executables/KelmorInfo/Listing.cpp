#include "Executables/KelmorInfo/Listing.hpp"

#include <algorithm>
#include <map>
#include <ostream>

#include "Executables/KelmorInfo/Json.hpp"
#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/Series/Series.hpp"
#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/Require.hpp"

namespace {

template <class T>
void AddOnce(std::vector<T>& all, const T& one) {
  if (std::find(all.begin(), all.end(), one) == all.end()) {
    all.push_back(one);
  }
}

void Include(UnionFacts& all, const Facts& facts) {
  ++all.mFiles;
  all.mStoredBytes = Sum(all.mStoredBytes, facts.mStoredBytes);
  if (facts.mSteps) {
    all.mSteps = all.mSteps.value_or(0) + *facts.mSteps;
  }
  all.mTimes.Include(facts.mTimes);
  // A file that could not be read counts only with what is known of it.
  const bool isRead = facts.mProblem.empty();
  if (facts.mKind != "ver" && (isRead || !facts.mShape.empty())) {
    all.mLength = all.mLength.value_or(0) + (facts.mShape.empty() ? 1 : facts.mShape[0]);
  }
  if (facts.mKind == "dat" && !facts.mShape.empty()) {
    AddOnce(all.mColumns, facts.mShape[1]);
  }
  if (!facts.mTensor.empty()) {
    AddOnce(all.mTensors, facts.mTensor);
  }
  if (!facts.mLegends.empty()) {
    AddOnce(all.mLegends, facts.mLegends);
  }
  if (facts.mKind == "ver" && isRead) {
    AddOnce(all.mVersions, facts.mVersions);
  }
  if (isRead) {
    AddOnce(all.mFilters, facts.mFilters);
  }
}

std::vector<UnionFacts> Unite(const std::vector<std::vector<Facts>>& datasets) {
  std::map<std::string, UnionFacts> united;
  for (const std::vector<Facts>& ofFile : datasets) {
    for (const Facts& facts : ofFile) {
      UnionFacts& all = united[facts.mName];
      all.mName = facts.mName;
      all.mKind = facts.mKind;
      Include(all, facts);
    }
  }
  std::vector<UnionFacts> list;
  for (auto& [name, all] : united) {
    list.push_back(std::move(all));
  }
  return list;
}

std::string Joined(const std::vector<std::string>& texts, const std::string& between) {
  std::string joined;
  for (const std::string& text : texts) {
    joined += (joined.empty() ? "" : between) + text;
  }
  return joined;
}

// Each form that something takes, side by side.
template <class T, class ToText>
std::string SideBySide(const std::vector<T>& forms, const ToText& toText) {
  std::vector<std::string> texts;
  for (const T& form : forms) {
    AddOnce(texts, std::string(toText(form)));
  }
  return Joined(texts, " | ");
}

std::string Shape(const UnionFacts& all) {
  if (!all.mVersions.empty()) {
    return "version " + SideBySide(all.mVersions, [](const H5_Objects::Version::History& history) {
             return std::to_string(history.size());
           });
  }
  const auto toText = [](hsize_t columns) { return std::to_string(columns); };
  return !all.mLength ? ""
         : all.mKind == "dat"
             ? std::to_string(*all.mLength) + " x " + SideBySide(all.mColumns, toText)
         : all.mKind == "txt" ? Counted(*all.mLength, "string")
                              : Counted(*all.mLength, "value");
}

std::string Steps(const std::optional<std::uint64_t>& steps) {
  return steps ? Counted(*steps, "step") : "";
}

std::string Times(const TimeRange& times) {
  return times.IsEmpty() ? "" : "t = " + RoundTrip(times.mFirst) + " ... " + RoundTrip(times.mLast);
}

std::string Stored(const std::optional<std::uint64_t>& bytes) {
  return bytes ? Size(*bytes) : "size unknown";
}

std::string Compression(const std::vector<std::string>& filters) {
  return filters.empty() ? "not compressed" : Joined(filters, "+");
}

std::string Legends(const std::vector<std::string>& legends) {
  return Joined(legends, ", ");
}

std::string Versions(const H5_Objects::Version::History& history, bool verbose) {
  std::vector<std::string> entries;
  for (const auto& [hash, help] : history) {
    entries.push_back(hash + ": " + help);
  }
  return verbose || entries.empty() ? Joined(entries, "; ") : entries.back();
}

// What a line ends in.
std::string Details(std::vector<std::string> details) {
  std::erase(details, "");
  return Vexa::Printable(Joined(details, "; "));
}

// Structure of tensors, legends and versions as far as they are asked for.
std::string Details(const UnionFacts& all, bool verbose, const std::string& problem) {
  const auto same = [](const std::string& tensor) { return tensor; };
  const auto versions = [verbose](const H5_Objects::Version::History& history) {
    return Versions(history, verbose);
  };
  return Details({SideBySide(all.mTensors, same), verbose ? SideBySide(all.mLegends, Legends) : "",
                  SideBySide(all.mVersions, versions),
                  problem.empty() ? "" : "UNREADABLE: " + problem});
}

// The cells of a line; `files` is one of them in the union.
std::vector<std::string> Cells(const UnionFacts& all, const std::vector<std::string>& files,
                               bool verbose, const std::string& problem = "") {
  std::vector<std::string> cells = {all.mKind, Vexa::Printable(all.mName), Shape(all)};
  cells.insert(cells.end(), files.begin(), files.end());
  const bool isRead = problem.empty();
  cells.insert(
      cells.end(),
      {Steps(all.mSteps), Times(all.mTimes), isRead ? Stored(all.mStoredBytes) : "",
       isRead ? SideBySide(all.mFilters, Compression) : "", Details(all, verbose, problem)});
  return cells;
}

void PrintFile(std::ostream& os, const InputFile& file, const std::vector<Facts>& datasets,
               bool verbose) {
  os << Vexa::Printable(file.mName) << "  (" << Size(file.mBytes) << ")\n";
  if (!file.mOpens) {
    os << "  CANNOT BE OPENED: " << file.mProblem.mReason << '\n';
    if (!file.mProblem.mAdvice.empty()) {
      os << "  " << Vexa::Printable(file.mProblem.mAdvice) << '\n';
    }
    return;
  }
  AlignedLines lines({2, 3, 5});
  for (const Facts& facts : datasets) {
    std::vector<std::string> cells = Cells(Unite({{facts}})[0], {}, verbose, facts.mProblem);
    if (facts.mKind == "ver" && !facts.mShape.empty()) {
      cells[2] = "version " + std::to_string(facts.mShape[0]);  // also of one that cannot be read
    }
    lines.Add(std::move(cells));
  }
  lines.Print(os, "  ");
}

Json ToJson(const std::optional<std::uint64_t>& number) {
  return number ? Json(*number) : Json();
}

Json ToJson(const H5_Objects::Version::History& history) {
  return ArrayOf(history, [](const auto& entry) {
    return Json{{"hash", entry.first}, {"text", entry.second}};
  });
}

// Adds what is told alike of one file's dataset and of that of all files.
template <class FACTS>
void AddFacts(const FACTS& facts, const Json& shape, Json& json) {
  const TimeRange& times = facts.mTimes;
  json["shape"] = shape;
  json["steps"] = ToJson(facts.mSteps);
  json["times"] = times.IsEmpty() ? Json() : Json{times.mFirst, times.mLast};
  json["legends"] = facts.mLegends;
  json["filters"] = facts.mFilters;
  json["stored_bytes"] = ToJson(facts.mStoredBytes);
}

Json ToJson(const Facts& facts) {
  Json json = {{"name", facts.mName}, {"kind", facts.mKind}};
  AddFacts(facts, facts.mShape, json);
  if (!facts.mTensor.empty()) {
    json["tensor"] = facts.mTensor;
  }
  if (facts.mKind == "ver") {
    json["versions"] = ToJson(facts.mVersions);
  }
  if (!facts.mProblem.empty()) {
    json["problem"] = facts.mProblem;
  }
  return json;
}

Json ToJson(const UnionFacts& all) {
  // The shape is that of all files' data together; columns that differ are null.
  Json shape = Json::array();
  if (all.mLength) {
    shape.push_back(*all.mLength);
  }
  if (!all.mColumns.empty()) {
    shape.push_back(all.mColumns.size() == 1 ? Json(all.mColumns[0]) : Json());
  }
  Json json = {{"name", all.mName}, {"kind", all.mKind}, {"files", all.mFiles}};
  AddFacts(all, shape, json);
  if (!all.mTensors.empty()) {
    json["tensors"] = all.mTensors;
  }
  if (all.mKind == "ver") {
    json["versions"] = ArrayOf(all.mVersions, [](const auto& history) { return ToJson(history); });
  }
  return json;
}

// Reads the facts. What fails does not end the run: it becomes the facts' problem.
Facts ReadFacts(Series& series, const Dataset& dataset, CachedH5File& file) {
  Facts facts;
  facts.mName = dataset.mName;
  facts.mKind = dataset.mpKind->mExtension;
  const Vexa_H5::MuteH5Errors mute;
  try {
    series.Describe(0, facts);
  } catch (const CodeError& error) {
    facts.mProblem = ReasonOf(error);
    // Closes what the failure left open.
    file.CloseFile();
  }
  return facts;
}

}  // namespace

Listing MakeListing(const InputFiles& files, const JoinOptions& options) {
  Listing listing;
  listing.mFiles = files.Files();
  listing.mDatasets.resize(listing.mFiles.size());
  listing.mExternalFiles.resize(listing.mFiles.size());
  Progress progress(false, 0, 0);
  for (std::size_t i = 0; i < listing.mFiles.size(); ++i) {
    if (!listing.mFiles[i].mOpens) {
      continue;
    }
    Inputs inputs = files.OpenAlone(static_cast<int>(i));
    std::vector<Dataset> datasets = FindDatasets(inputs, options.mSkip);
    std::ranges::sort(datasets, {}, &Dataset::mName);
    for (const Dataset& dataset : datasets) {
      const auto series = MakeSeries({inputs, options, progress}, dataset);
      listing.mDatasets[i].push_back(ReadFacts(*series, dataset, inputs[0]));
    }
    for (const auto& [path, stamp] : inputs[0].ExternalFiles()) {
      listing.mExternalFiles[i].push_back(path);
    }
  }
  listing.mUnion = Unite(listing.mDatasets);
  return listing;
}

void PrintListing(std::ostream& os, const Listing& listing, bool verbose) {
  for (std::size_t i = 0; i < listing.mFiles.size(); ++i) {
    os << (i > 0 ? "\n" : "");
    PrintFile(os, listing.mFiles[i], listing.mDatasets[i], verbose);
  }
  if (listing.mFiles.size() == 1) {
    return;
  }
  os << "\nall " << Counted(listing.mFiles.size(), "file") << '\n';
  AlignedLines lines({2, 4, 6});
  for (const UnionFacts& all : listing.mUnion) {
    lines.Add(Cells(all, {"in " + Counted(all.mFiles, "file")}, verbose));
  }
  lines.Print(os, "  ");
}

void PrintListingAsJson(std::ostream& os, const Listing& listing) {
  Json json = {{"files", Json::array()}};
  for (std::size_t i = 0; i < listing.mFiles.size(); ++i) {
    const InputFile& file = listing.mFiles[i];
    Json entry = {{"file", file.mName}, {"bytes", file.mBytes}, {"opens", file.mOpens}};
    if (!file.mOpens) {
      entry["problem"] = file.mProblem.mReason;
      entry["advice"] = file.mProblem.mAdvice;
    }
    entry["external_files"] = listing.mExternalFiles[i];
    entry["datasets"] =
        ArrayOf(listing.mDatasets[i], [](const Facts& facts) { return ToJson(facts); });
    json["files"].push_back(std::move(entry));
  }
  json["union"] = ArrayOf(listing.mUnion, [](const UnionFacts& all) { return ToJson(all); });
  PrintJson(os, json);
}

void RequireNoProblems(const Listing& listing) {
  std::string problems;
  for (std::size_t i = 0; i < listing.mFiles.size(); ++i) {
    const InputFile& file = listing.mFiles[i];
    problems += WhyNotOpened(file);
    for (const Facts& facts : listing.mDatasets[i]) {
      if (!facts.mProblem.empty()) {
        problems += "Object '" + Vexa::Printable(facts.mName) + "' of file '" +
                    Vexa::Printable(file.mName) + "': ";
        problems += facts.mProblem + "\n";
      }
    }
  }
  REQUIRE(problems.empty(), Vexa::Verbatim(problems));
}
