// Which texts a glob matches is the fuzz target's to check, on its corpus and beyond.
#include "Utils/StringParsing/GlobMatches.hpp"

#include <gmock/gmock.h>

#include "Utils/ErrorHandling/ReportOf.hpp"

namespace {

TEST(GlobMatches, Alternatives) {
  EXPECT_TRUE(AnyGlobMatches({"a", "x|b"}, "b"));
  EXPECT_FALSE(AnyGlobMatches({}, "b"));

  EXPECT_THAT(ReportOf([] { GlobMatches("x|", "z"); }),
              HasReport("pieces[i]!=\"\"", "GlobMatches",
                        "GlobMatches with comma-separated globs encountered empty piece.\n"
                        "This can happen if there is a lone comma at the end.\nglob='x|'"));
  EXPECT_THAT(ReportOf([] { GlobMatches("z|(x|y)", "x"); }),
              HasReport("pieces.Size()>1", "GlobMatches",
                        "GlobMatches encountered |, but found only 1 piece.\n"
                        "Are there unmatched parentheses in the glob='(x|y)'?"));
}

}  // namespace
