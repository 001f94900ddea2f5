#include "Utils/StringParsing/GlobMatches.hpp"

#include <gmock/gmock.h>

#include <string>
#include <tuple>

#include "Utils/ErrorHandling/TestSupport/ReportOf.hpp"

namespace {

TEST(GlobMatches, StarsAndQuestionMarks) {
  const std::tuple<const char*, const char*, bool> cases[] = {{"*", "", true},
                                                              {"a*", "a", true},
                                                              {"a**", "a", false},
                                                              {"a**", "ab", true},
                                                              {"*.dat", "/a/b.dat", true},
                                                              {"a*b*c", "a-bb-b-cc", true},
                                                              {"a*b*c", "a-c-b", false},
                                                              {"?b", "b", false},
                                                              {"?b", "\nb", true},
                                                              {"[a]", "a", false},
                                                              {"", "", true},
                                                              {"c|d", "d", true}};
  for (const auto& [glob, text, matches] : cases) {
    EXPECT_EQ(GlobMatches(glob, text), matches) << glob << " on " << text;
  }
  // Time does not explode.
  EXPECT_FALSE(GlobMatches("*a*a*a*a*a*a*a*a*a*a*b", std::string(2000, 'a')));
}

TEST(GlobMatches, Alternatives) {
  EXPECT_TRUE(AnyGlobMatches({"a", "x|b"}, "b"));
  EXPECT_FALSE(AnyGlobMatches({}, "b"));

  EXPECT_THAT(ReportOf([] { GlobMatches("z|(x|y)", "x"); }),
              testing::HasSubstr(")\nGlobMatches encountered |, but found only 1 piece.\n"
                                 "Are there unmatched parentheses in the glob='(x|y)'?"));
}

}  // namespace
