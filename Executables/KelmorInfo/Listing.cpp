#include "Executables/KelmorInfo/Listing.hpp"

#include <map>
#include <nlohmann/json.hpp>
#include <ostream>

#include "Executables/KelmorInfo/Text.hpp"
#include "Utils/ErrorHandling/Require.hpp"

namespace {

using Json = nlohmann::ordered_json;

std::vector<UnionFacts> Unite(const std::vector<std::vector<Facts>>& datasets) {
  std::map<std::string, UnionFacts> united;
  for (const std::vector<Facts>& ofFile : datasets) {
    for (const Facts& facts : ofFile) {
      UnionFacts& all = united[facts.mName];
      all.mName = facts.mName;
      all.mKind = facts.mKind;
      ++all.mFiles;
      all.mStoredBytes += facts.mStoredBytes;
      if (facts.mSteps) {
        all.mSteps = all.mSteps.value_or(0) + *facts.mSteps;
      }
      if (facts.mTimes && all.mTimes) {
        all.mTimes->Include(*facts.mTimes);
      } else if (facts.mTimes) {
        all.mTimes = facts.mTimes;
      }
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

std::string Shape(const Facts& facts) {
  if (facts.mShape.empty()) {
    return facts.mKind == "txt" && facts.mProblem.empty() ? "1 string" : "";
  }
  const std::uint64_t count = facts.mShape[0];
  if (facts.mKind == "dat") {
    return std::to_string(count) + " x " + std::to_string(facts.mShape[1]);
  }
  return facts.mKind == "txt"   ? Counted(count, "string")
         : facts.mKind == "ver" ? "version " + std::to_string(count)
                                : Counted(count, "value");
}

std::string Steps(const std::optional<std::uint64_t>& steps) {
  return steps ? Counted(*steps, "step") : "";
}

std::string Times(const std::optional<TimeRange>& times) {
  return times ? "t = " + RoundTrip(times->mFirst) + " ... " + RoundTrip(times->mLast) : "";
}

std::string Compression(const Facts& facts) {
  return facts.mFilters.empty() ? "not compressed" : Joined(facts.mFilters, "+");
}

// What a line ends in: structure of tensors, legends and versions as far as they are asked for.
std::string Details(const Facts& facts, bool verbose) {
  std::vector<std::string> details;
  if (!facts.mTensor.empty()) {
    details.push_back(facts.mTensor);
  }
  if (verbose && !facts.mLegends.empty()) {
    details.push_back(Joined(facts.mLegends, ", "));
  }
  if (!facts.mVersions.empty()) {
    std::vector<std::string> entries;
    for (const auto& [hash, help] : facts.mVersions) {
      entries.push_back(hash + ": " + help);
    }
    details.push_back(verbose ? Joined(entries, "; ") : entries.back());
  }
  if (!facts.mProblem.empty()) {
    details.push_back("UNREADABLE: " + facts.mProblem);
  }
  return Printable(Joined(details, "; "));
}

void PrintFile(std::ostream& os, const InputFile& file, const std::vector<Facts>& datasets,
               bool verbose) {
  os << Printable(file.mName) << "  (" << Size(file.mBytes) << ")\n";
  if (!file.mOpens) {
    os << "  CANNOT BE OPENED: " << file.mProblem.mReason << '\n';
    if (!file.mProblem.mAdvice.empty()) {
      os << "  " << Printable(file.mProblem.mAdvice) << '\n';
    }
    return;
  }
  AlignedLines lines({2, 3, 5});
  for (const Facts& facts : datasets) {
    const bool isRead = facts.mProblem.empty();
    lines.Add({facts.mKind, Printable(facts.mName), Shape(facts), Steps(facts.mSteps),
               Times(facts.mTimes), isRead ? Size(facts.mStoredBytes) : "",
               isRead ? Compression(facts) : "", Details(facts, verbose)});
  }
  lines.Print(os, "  ");
}

Json ToJson(const std::optional<TimeRange>& times) {
  return times ? Json{times->mFirst, times->mLast} : Json();
}

Json ToJson(const std::optional<std::uint64_t>& steps) {
  return steps ? Json(*steps) : Json();
}

Json ToJson(const Facts& facts) {
  Json json = {{"name", facts.mName},           {"kind", facts.mKind},
               {"shape", facts.mShape},         {"steps", ToJson(facts.mSteps)},
               {"times", ToJson(facts.mTimes)}, {"legends", facts.mLegends},
               {"filters", facts.mFilters},     {"stored_bytes", facts.mStoredBytes}};
  if (!facts.mTensor.empty()) {
    json["tensor"] = facts.mTensor;
  }
  if (facts.mKind == "ver") {
    json["versions"] = Json::array();
    for (const auto& [hash, help] : facts.mVersions) {
      json["versions"].push_back({{"hash", hash}, {"text", help}});
    }
  }
  if (!facts.mProblem.empty()) {
    json["problem"] = facts.mProblem;
  }
  return json;
}

}  // namespace

Listing MakeListing(const InputFiles& files, const std::string& skip) {
  Listing listing;
  listing.mFiles = files.Files();
  listing.mDatasets.resize(listing.mFiles.size());
  for (std::size_t i = 0; i < listing.mFiles.size(); ++i) {
    if (!listing.mFiles[i].mOpens) {
      continue;
    }
    Inputs inputs = files.OpenAlone(static_cast<int>(i));
    for (const std::string& name : inputs[0].GetNames("*", false)) {
      if (!IsSkipped(name, skip)) {
        listing.mDatasets[i].push_back(ReadFacts(inputs, 0, name));
      }
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
  AlignedLines lines({3, 5});
  for (const UnionFacts& all : listing.mUnion) {
    lines.Add({all.mKind, Printable(all.mName), "in " + Counted(all.mFiles, "file"),
               Steps(all.mSteps), Times(all.mTimes), Size(all.mStoredBytes)});
  }
  lines.Print(os, "  ");
}

void PrintListingAsJson(std::ostream& os, const Listing& listing) {
  Json json = {{"files", Json::array()}, {"union", Json::array()}};
  for (std::size_t i = 0; i < listing.mFiles.size(); ++i) {
    const InputFile& file = listing.mFiles[i];
    Json entry = {{"file", file.mName}, {"bytes", file.mBytes}, {"opens", file.mOpens}};
    if (!file.mOpens) {
      entry["problem"] = file.mProblem.mReason;
      entry["advice"] = file.mProblem.mAdvice;
    }
    entry["datasets"] = Json::array();
    for (const Facts& facts : listing.mDatasets[i]) {
      entry["datasets"].push_back(ToJson(facts));
    }
    json["files"].push_back(std::move(entry));
  }
  for (const UnionFacts& all : listing.mUnion) {
    json["union"].push_back({{"name", all.mName},
                             {"kind", all.mKind},
                             {"files", all.mFiles},
                             {"steps", ToJson(all.mSteps)},
                             {"times", ToJson(all.mTimes)},
                             {"stored_bytes", all.mStoredBytes}});
  }
  os << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

void RequireNoProblems(const Listing& listing) {
  std::string problems;
  for (std::size_t i = 0; i < listing.mFiles.size(); ++i) {
    const InputFile& file = listing.mFiles[i];
    problems += WhyNotOpened(file);
    for (const Facts& facts : listing.mDatasets[i]) {
      if (!facts.mProblem.empty()) {
        problems += "Object '" + facts.mName + "' of file '" + file.mName + "': ";
        problems += facts.mProblem + "\n";
      }
    }
  }
  REQUIRE(problems.empty(), problems);
}
