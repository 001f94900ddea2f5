#include "Executables/Series/Inputs.hpp"

#include <algorithm>
#include <filesystem>
#include <map>
#include <ranges>
#include <system_error>

#include "Utils/ErrorHandling/OnFailure.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Process/Printable.hpp"
#include "Utils/StringParsing/GlobMatches.hpp"

namespace {
constexpr int sFilesKeptOpen = 32;
}  // namespace

Inputs::Inputs(const MyVector<std::string>& filenames, ReadAhead::Need need)
    : mReadAhead(filenames, need), mNames(filenames) {
  // Handles can be neither copied nor moved; the view makes each in its place.
  int opened = 0;
  const auto open = [&](const std::string& filename) {
    mStamps.push_back(Vexa::FileStamp(filename));
    return CachedH5File(filename, ReadOnly, {}, 0, ++opened <= sFilesKeptOpen);
  };
  const auto files = std::views::transform(filenames, open);
  mFiles.assign(MV::Sequence(files.begin(), filenames.size()));
}

bool Inputs::HasChanged(int file) const {
  // A link on the way may lead elsewhere by now, and what was opened be neither.
  const std::string& stamp = mStamps[static_cast<std::size_t>(file)];
  const std::string opened = mFiles[file].OpenedStamp();
  return Vexa::FileStamp(mNames[file]) != stamp ||
         Vexa::FileStamp(mFiles[file].Filename()) != stamp || (!opened.empty() && opened != stamp);
}

void Inputs::RequireSameAsOpened(int file) const {
  // A file that stays open is looked at in the end.
  REQUIRE(file < sFilesKeptOpen || !HasChanged(file),
          "The file has changed since its names were read");
}

void Inputs::RequireUnchanged() const {
  std::string changed;
  std::map<std::string, std::string> externalFiles;
  for (int file = 0; file < Size(); ++file) {
    changed += HasChanged(file) ? "\n" + Vexa::Printable(mFiles[file].Filename()) : "";
    externalFiles.merge(mFiles[file].ExternalFiles());
  }
  for (const auto& [path, stamp] : externalFiles) {
    changed += Vexa::FileStamp(path) != stamp ? "\n" + Vexa::Printable(path) : "";
  }
  REQUIRE(changed.empty(), "These files have changed while they were read:" << Vexa::Verbatim(changed));
}

std::uint64_t Inputs::TotalBytes() const {
  std::uint64_t bytes = 0;
  for (const CachedH5File& file : mFiles) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(file.Filename(), error);
    bytes += error ? 0 : size;
  }
  return bytes;
}

void Inputs::KeepObjectsOpenDuring(const std::function<void()>& action) {
  mKeepsObjectsOpen = true;
  const OnFailure forget([this] { mKeepsObjectsOpen = false; });
  action();
  mKeepsObjectsOpen = false;
  for (int file = 0; file < std::min(Size(), sFilesKeptOpen); ++file) {
    Release(file);
  }
}

void Inputs::Release(int file) {
  if (file < sFilesKeptOpen) {
    if (!mKeepsObjectsOpen) {
      mFiles[file].CloseObjects();
    }
  } else {
    mFiles[file].CloseFile();
  }
}

Entries FindEntries(const MyVector<CachedH5File>& inputs, const std::string& pattern,
                    const std::string& skip) {
  Entries entries;
  for (int file = 0; file < inputs.Size(); ++file) {
    for (const std::string& name : inputs[file].GetNames(pattern, false)) {
      const bool isSkipped = !skip.empty() && !name.ends_with(".ver") && GlobMatches(skip, name);
      if (std::vector<int>* files = entries.Find(name)) {
        files->push_back(file);
      } else if (!isSkipped) {
        entries.Insert(name, 1, file);
      }
    }
  }
  return entries;
}

MyMap<std::string, int> ParseEntries(const MyVector<CachedH5File>& inputs,
                                     const std::string& pattern, const std::string& skip) {
  MyMap<std::string, int> entries;
  for (const auto& [name, files] : FindEntries(inputs, pattern, skip)) {
    entries.Insert(name, static_cast<int>(files.size()));
  }
  return entries;
}
