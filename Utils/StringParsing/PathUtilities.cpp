#include "Utils/StringParsing/PathUtilities.hpp"

#include <stdlib.h>

#include <cerrno>
#include <cstddef>
#include <memory>

#include "Utils/ErrorHandling/Require.hpp"

namespace {

std::string WithoutTrailingSlashes(const std::string& path) {
  return path.substr(0, path.find_last_not_of('/') + 1);  // npos + 1 is 0
}

}  // namespace

std::string GetFilenameFromPath(const std::string& path) {
  const std::string trimmed = WithoutTrailingSlashes(path);
  return trimmed.empty() ? "/" : trimmed.substr(trimmed.rfind('/') + 1);  // npos + 1 is 0
}

std::string GetDirectoryFromPath(const std::string& path) {
  const std::string trimmed = WithoutTrailingSlashes(path);
  if (trimmed.empty()) {
    return "/";
  }
  const std::size_t slash = trimmed.rfind('/');
  if (slash == std::string::npos) {
    return ".";
  }
  const std::string directory = WithoutTrailingSlashes(trimmed.substr(0, slash));
  return directory.empty() ? "/" : directory;
}

std::string Realpath(const std::string& path) {
  const std::unique_ptr<char, decltype(&free)> status(realpath(path.c_str(), nullptr), &free);
  const int errnum = errno;  // before building the message can change it
  REQUIRE(status, "Conversion with realpath failed on path: " << path << ": " << StrError(errnum));
  return status.get();
}

bool PathIsAbsolute(const std::string& path) {
  return path.starts_with('/');
}
