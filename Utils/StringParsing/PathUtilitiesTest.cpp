#include "Utils/StringParsing/PathUtilities.hpp"

#include <gmock/gmock.h>

#include "Utils/ErrorHandling/ReportOf.hpp"

namespace {

TEST(PathUtilities, FilenameAndDirectory) {
  const struct {
    const char* mPath;
    const char* mFilename;
    const char* mDirectory;
  } cases[] = {{"", "/", "/"},      {"///", "/", "/"},         {"a", "a", "."},
               {"a/", "a", "."},    {"a/b/", "b", "a"},        {"a//b", "b", "a"},
               {"//a//", "a", "/"}, {"/a/b.h5", "b.h5", "/a"}, {"../a", "a", ".."}};
  for (const auto& c : cases) {
    EXPECT_EQ(GetFilenameFromPath(c.mPath), c.mFilename) << c.mPath;
    EXPECT_EQ(GetDirectoryFromPath(c.mPath), c.mDirectory) << c.mPath;
  }
}

TEST(PathUtilities, RealpathResolvesOrSaysWhyNot) {
  EXPECT_EQ(Realpath("/usr/../usr/./"), "/usr");
  EXPECT_THAT(ReportOf([] { Realpath("/no/such/path"); }),
              HasReport("status", "PathUtilities",
                        "Conversion with realpath failed on path: /no/such/path: "
                        "No such file or directory"));
}

}  // namespace
