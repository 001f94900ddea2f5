#include "Utils/StringParsing/PathUtilities.hpp"

#include <gmock/gmock.h>

#include <array>

namespace {

TEST(PathUtilities, FilenameAndDirectory) {
  const std::array<const char*, 3> cases[] = {
      {"", "/", "/"},      {"///", "/", "/"},         {"a", "a", "."},
      {"a/", "a", "."},    {"a/b/", "b", "a"},        {"a//b", "b", "a"},
      {"//a//", "a", "/"}, {"/a/b.h5", "b.h5", "/a"}, {"../a", "a", ".."}};
  for (const auto& [path, filename, directory] : cases) {
    EXPECT_EQ(GetFilenameFromPath(path), filename) << path;
    EXPECT_EQ(GetDirectoryFromPath(path), directory) << path;
    EXPECT_EQ(PathIsAbsolute(path), path[0] == '/') << path;
  }
}

TEST(PathUtilities, RealpathResolves) {
  EXPECT_EQ(Realpath("/usr/../usr/./"), "/usr");
}

}  // namespace
