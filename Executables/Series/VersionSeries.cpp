#include "Executables/Series/VersionSeries.hpp"

#include <algorithm>
#include <iostream>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/Printable.hpp"

using H5_Objects::Version;

namespace {

// Says where a history differs from the first file's.
std::string HistoryText(const Version::History& history, const Version::History& first) {
  const auto [at, inFirst] = std::ranges::mismatch(history, first);
  std::string text = "version " + std::to_string(history.size());
  if (history.size() == first.size() && at != history.end()) {
    text += " with '" + at->first + "' instead of '" + inFirst->first + "' as entry " +
            std::to_string(at - history.begin() + 1);
  }
  return text;
}

}  // namespace

void VersionSeries::RequireJoinable(const CachedH5File& file) const {
  // A name without glob characters matches no other.
  const std::string& name = Name();
  if (name.find_first_of("*?|") == std::string::npos || file.Exists(name)) {
    return;
  }
  const Vexa::ReportContext context(name, file.Filename());
  const MyVector<std::string> data_sets = file.GetNames(name, true);
  REQUIRE(data_sets.size()==0, "Version information '"
                                   << name << "' not found in all h5 files.\n"
                                   << "Cannot join h5 files with different versions\n");
}

void VersionSeries::TakeIn(int file, Depth depth) {
  Visit<Version>(file, [&](const Version& ver) {
    const unsigned long number = ver.GetCurrentVersion();
    const bool isFirst = mAgreement.Groups().empty();
    version_number = isFirst ? number : version_number;
    // Whoever compares the number first is not to fail because it claims a huge history.
    const bool hasHistory = !isFirst || depth != Depth::Agreement;
    const Version::History history = hasHistory ? ver.RetrieveVersionHistory() : Version::History();
    version_history = version_history.empty() ? history : version_history;
    const std::string numbers = std::to_string(number) + " " + std::to_string(version_number);
    const std::string mismatch = "Version mismatch '" + Vexa::Printable(Name()) + "'";
    if (number != version_number) {
      mAgreement.Differ("ver.GetCurrentVersion() == version_number", VEXA_CURRENT_REPORT_LABEL,
                        mismatch + ": " + numbers);
    } else if (history != version_history) {
      mAgreement.Differ("ver.RetrieveVersionHistory() == version_history",
                        VEXA_CURRENT_REPORT_LABEL, mismatch + " in history: " + numbers);
    }
    mAgreement.Add(file, HistoryText(history, version_history));
    Note(file, ver, {}, depth);
  });
}

std::uint64_t VersionSeries::Bytes() const {
  std::uint64_t characters = 0;
  for (const auto& [hash, help] : version_history) {
    characters += hash.size() + help.size();
  }
  return characters;
}

std::vector<Series::Property> VersionSeries::Properties(bool /*asInFile*/) const {
  std::vector<Property> properties = {{"version", std::to_string(version_number)}};
  for (std::size_t i = 0; i < version_history.size(); ++i) {
    const std::string entry = "entry " + std::to_string(i);
    properties.push_back({"hash of " + entry, version_history[i].first});
    properties.push_back({"text of " + entry, version_history[i].second});
  }
  return properties;
}

void VersionSeries::Join(CachedH5File& output) {
  TakeInAll(Depth::Values);
  auto& ver = output.GetObjectForWrite<Version>(Name());
  ver.Initialize(version_history);
  // Written at once, as everything is: if the output had to be opened again for it after it was
  // closed, a run killed in between would leave a file that looks whole and lacks this record.
  if (ver.SizeOfCache() > 0) {
    output.WriteImmediately(Name(), [&ver] { ver.WriteCache(); });
  }
  if (mRun.mOptions.mVerbose) {
    std::cout << Name() << " writing version " << version_number << std::endl;
  }
}

void VersionSeries::Describe(int file, Facts& facts) {
  Visit<Version>(file, [&facts](const Version& ver) {
    facts.mShape = ver.ExtentsInFile();
    facts.AddStorage(ver);
    facts.mVersions = ver.RetrieveVersionHistory();
  });
}
