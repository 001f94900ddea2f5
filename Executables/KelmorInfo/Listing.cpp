#include "Executables/KelmorInfo/Listing.hpp"

#include <algorithm>
#include <functional>
#include <iterator>
#include <ostream>
#include <ranges>

#include "Executables/KelmorInfo/JsonParts.hpp"
#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/KelmorInfo/ViewSegments.hpp"
#include "Executables/Series/Series.hpp"
#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/Require.hpp"

namespace {

template <class T>
void AddOnce(std::vector<T>& all, const T& one) {
  if (std::ranges::find(all, one) == all.end()) {
    all.push_back(one);
  }
}

void Include(UnionFacts& all, const Facts& facts) {
  all.mName = facts.mName;
  all.mKind = facts.mKind;
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
  if (facts.mTensor) {
    AddOnce(all.mTensors, *facts.mTensor);
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

// Each form that something takes, side by side.
template <class T, class ToText = std::identity>
std::string SideBySide(const std::vector<T>& forms, const ToText& toText = {}) {
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
  return !all.mLength ? ""
         : all.mKind == "dat"
             ? std::to_string(*all.mLength) + " x " +
                   SideBySide(all.mColumns, [](hsize_t columns) { return std::to_string(columns); })
         : all.mKind == "txt" ? Counted(*all.mLength, "string")
                              : Counted(*all.mLength, "value");
}

std::string Times(const TimeRange& times) {
  return times.IsEmpty() ? "" : "t = " + RoundTrip(times.mFirst) + " ... " + RoundTrip(times.mLast);
}

std::string Compression(const std::vector<std::string>& filters) {
  return filters.empty() ? "not compressed" : Joined(filters, "+");
}

std::string Versions(const H5_Objects::Version::History& history, bool verbose) {
  std::vector<std::string> entries;
  for (const auto& [hash, help] : history) {
    entries.push_back(hash + ": " + help);
  }
  return verbose || entries.empty() ? Joined(entries, "; ") : entries.back();
}

// What a line ends in: structure of tensors, legends and versions as far as they are asked for.
std::string Details(const UnionFacts& all, bool verbose, const std::string& problem) {
  const auto legends = [](const std::vector<std::string>& names) { return Joined(names, ", "); };
  const auto versions = [verbose](const H5_Objects::Version::History& history) {
    return Versions(history, verbose);
  };
  std::vector<std::string> details = {
      SideBySide(all.mTensors, [](const TensorFacts& tensor) { return tensor.Text(); }),
      verbose ? SideBySide(all.mLegends, legends) : "", SideBySide(all.mVersions, versions),
      problem.empty() ? "" : "UNREADABLE: " + problem};
  std::erase(details, "");
  return Vexa::Printable(Joined(details, "; "));
}

// The cells of a line; `files` says in the union how many there are.
std::vector<std::string> CellsOf(const UnionFacts& all, const std::string& files, bool verbose,
                                 const std::string& problem = "") {
  const bool isRead = problem.empty();
  const std::string stored = all.mStoredBytes ? Size(*all.mStoredBytes) : "size unknown";
  return {all.mKind,
          Vexa::Printable(all.mName),
          Shape(all),
          files,
          all.mSteps ? Counted(*all.mSteps, "step") : "",
          Times(all.mTimes),
          isRead ? stored : "",
          isRead ? SideBySide(all.mFilters, Compression) : "",
          Details(all, verbose, problem)};
}

// Cells of numbers.
const std::set<std::size_t> sRightAligned = {2, 4, 6};

void PrintFile(std::ostream& os, const ListedFile& file, bool verbose) {
  os << Vexa::Printable(file.mName) << "  (" << Size(file.mBytes) << ")\n";
  if (!file.mOpens) {
    os << "  CANNOT BE OPENED: " << file.mProblem << '\n';
    if (!file.mAdvice.empty()) {
      os << "  " << Vexa::Printable(file.mAdvice) << '\n';
    }
    return;
  }
  AlignedLines lines(sRightAligned);
  for (const Facts& facts : file.mDatasets) {
    UnionFacts one;
    Include(one, facts);
    std::vector<std::string> cells = CellsOf(one, "", verbose, facts.mProblem);
    if (facts.mKind == "ver" && !facts.mShape.empty()) {
      cells[2] = "version " + std::to_string(facts.mShape[0]);  // also of one that cannot be read
    }
    lines.Add(std::move(cells));
  }
  lines.Print(os, "  ");
  if (!file.mSegments.empty()) {
    os << "  a view of " << Counted(file.mSegments.size(), "file") << '\n';
  }
  for (const InputFile& segment : file.mSegments) {
    if (verbose || !segment.mOpens) {
      os << "    " << Vexa::Printable(segment.mName)
         << (segment.mOpens ? "" : "  CANNOT BE OPENED, its rows read as NaN: " + segment.mProblem)
         << '\n';
    }
  }
}

Json ToJson(const Facts& facts) {
  return {{"name", facts.mName},
          {"kind", facts.mKind},
          {"shape", facts.mShape},
          {"steps", OrNull(facts.mSteps)},
          {"times", RangeAsJson(facts.mTimes)},
          {"legend", facts.mLegends},
          {"tensor", facts.mTensor ? TensorAsJson(*facts.mTensor) : Json()},
          {"history", HistoryAsJson(facts.mVersions)},
          {"filters", facts.mFilters},
          {"stored_bytes", OrNull(facts.mStoredBytes)},
          {"reason", TextOrNull(facts.mProblem)}};
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
  return {{"name", all.mName},
          {"kind", all.mKind},
          {"file_count", all.mFiles},
          {"shape", shape},
          {"steps", OrNull(all.mSteps)},
          {"times", RangeAsJson(all.mTimes)},
          {"legends", all.mLegends},
          {"tensors", ArrayOf(all.mTensors, TensorAsJson)},
          {"histories", ArrayOf(all.mVersions, HistoryAsJson)},
          {"filter_lists", all.mFilters},
          {"stored_bytes", OrNull(all.mStoredBytes)}};
}

Json ToJson(const ListedFile& file) {
  Json json = FileAsJson(file);
  json["external_files"] = NamesAsJson(file.mExternalFiles);
  json["segments"] = ArrayOf(file.mSegments, FileAsJson);
  json["datasets"] = ArrayOf(file.mDatasets, [](const Facts& facts) { return ToJson(facts); });
  return json;
}

// Reads the facts. What fails does not end the run: it becomes the facts' problem.
Facts ReadFacts(Series& series, const Dataset& dataset, CachedH5File& file) {
  Facts facts;
  facts.mName = dataset.mName;
  facts.mKind = dataset.mpKind->mExtension;
  const Vexa_H5::MuteH5Errors mute;
  const Tables::OpenVirtualTables ofView;
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

Listing MakeListing(const JoinOptions& options) {
  Listing listing;
  const std::vector<InputFile> files = TryFiles(options.mInputs);
  for (const InputFile& file : files) {
    ListedFile& listed = listing.mFiles.emplace_back(ListedFile{file});
    if (!file.mOpens) {
      continue;
    }
    // Alone, it stays open between its datasets however many files there are.
    Inputs inputs({file.mName});
    std::vector<Dataset> datasets = FindDatasets(inputs, options.mSkip);
    std::ranges::sort(datasets, {}, &Dataset::mName);
    ReadAheadOf(inputs, datasets);
    Progress progress(true, datasets.size(), 0);
    const std::string stage = "listing file " + std::to_string(listing.mFiles.size()) + " of " +
                              std::to_string(files.size());
    for (const Dataset& dataset : datasets) {
      inputs.Ahead().Reach(static_cast<std::size_t>(&dataset - datasets.data()));
      progress.Next(stage);
      const auto series = MakeSeries({inputs, options, progress}, dataset);
      const Facts& facts = listed.mDatasets.emplace_back(ReadFacts(*series, dataset, inputs[0]));
      Include(listing.mUnion[facts.mName], facts);
    }
    std::ranges::copy(inputs[0].ExternalFiles() | std::views::keys,
                      std::back_inserter(listed.mExternalFiles));
  }
  // By then no file is open that could be among them.
  for (ListedFile& listed : listing.mFiles) {
    listed.mSegments = ReadSegments(listed.mName, listed.mDatasets);
    for (const Facts& facts : listed.mDatasets) {
      if (!facts.mTimesElsewhere.empty()) {
        listing.mUnion[facts.mName].mTimes.Include(facts.mTimes);
      }
    }
  }
  return listing;
}

void PrintListing(std::ostream& os, const Listing& listing, bool verbose) {
  for (const ListedFile& file : listing.mFiles) {
    os << (&file == &listing.mFiles.front() ? "" : "\n");
    PrintFile(os, file, verbose);
  }
  if (listing.mFiles.size() == 1) {
    return;
  }
  os << "\nall " << Counted(listing.mFiles.size(), "file") << '\n';
  AlignedLines lines(sRightAligned);
  for (const auto& [name, all] : listing.mUnion) {
    lines.Add(CellsOf(all, "in " + Counted(all.mFiles, "file"), verbose));
  }
  lines.Print(os, "  ");
}

void PrintListingAsJson(std::ostream& os, const Listing& listing) {
  const auto toJson = [](const auto& facts) { return ToJson(facts); };
  Json json = NewDocument();
  json["files"] = ArrayOf(listing.mFiles, toJson);
  json["union"] = ArrayOf(listing.mUnion | std::views::values, toJson);
  PrintJson(os, json);
}

void RequireNoProblems(const Listing& listing) {
  std::string problems;
  for (const ListedFile& file : listing.mFiles) {
    problems += WhyNotOpened(file);
    for (const InputFile& segment : file.mSegments) {
      problems += WhyNotOpened(segment);
    }
    for (const Facts& facts : file.mDatasets) {
      if (!facts.mProblem.empty()) {
        problems += "Object '" + Vexa::Printable(facts.mName) + "' of file '" +
                    Vexa::Printable(file.mName) + "': " + facts.mProblem + "\n";
      }
    }
  }
  REQUIRE(problems.empty(), Vexa::Verbatim(problems));
}
