#include "Utils/HDF5/ExternalFiles.hpp"

#include <filesystem>
#include <set>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/Files.hpp"

using namespace Vexa_H5;

namespace {

using Stamps = std::map<std::string, std::string>;

struct Followed {
  // The files that hold the links which the present opening has followed so far.
  std::vector<std::string> mParents;
  // The stamps of the files that were found where links lead.
  Stamps mStamps;
  // The files to which links lead, by the file that holds the links.
  std::map<std::string, std::set<std::string>> mChildren;
};

// This is never destroyed, since files are opened while the process exits.
Followed& TheFollowed() {
  static auto& followed = *new Followed;
  return followed;
}

std::string CanonicalPath(const std::string& path) {
  std::error_code error;
  const std::filesystem::path canonical = std::filesystem::canonical(path, error);
  return error ? path : canonical.string();
}

// The name by which the library opened the file that holds an object.
std::string FilenameOf(hid_t id) {
  const ssize_t length = H5Fget_name(id, nullptr, 0);
  REQUIRE(length>=0, "H5Fget_name failed");
  std::string name(static_cast<std::size_t>(length), '\0');
  const ssize_t err = H5Fget_name(id, name.data(), name.size() + 1);
  REQUIRE(err>=0, "H5Fget_name failed");
  return name;
}

void Collect(const std::string& path, Stamps& files) {
  Followed& followed = TheFollowed();
  for (const std::string& child : followed.mChildren[path]) {
    const auto stamp = followed.mStamps.find(child);
    if (files.emplace(child, stamp == followed.mStamps.end() ? "" : stamp->second).second) {
      Collect(child, files);
    }
  }
}

}  // namespace

void Vexa_H5::NoteExternalLink(const std::string& parentFile,
                               const std::vector<std::string>& places) {
  Followed& followed = TheFollowed();
  followed.mParents.push_back(CanonicalPath(parentFile));
  for (const std::string& place : places) {
    if (FileExists(place)) {
      followed.mStamps.emplace(CanonicalPath(place), Vexa::FileStamp(place));
    }
  }
}

void Vexa_H5::NoteOpened(hid_t id) {
  Followed& followed = TheFollowed();
  if (followed.mParents.empty()) {
    return;
  }
  // One link after the other led to the object, each from the file to which the last one led.
  std::vector<std::string> files;
  files.swap(followed.mParents);
  if (id < 0) {
    return;
  }
  files.push_back(CanonicalPath(FilenameOf(id)));
  for (std::size_t i = 0; i + 1 < files.size(); ++i) {
    followed.mChildren[files[i]].insert(files[i + 1]);
  }
}

std::map<std::string, std::string> Vexa_H5::ExternalFilesOf(const std::string& path) {
  Stamps files;
  Collect(path, files);
  files.erase(path);
  return files;
}
