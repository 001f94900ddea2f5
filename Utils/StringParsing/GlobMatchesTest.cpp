#include "Utils/StringParsing/GlobMatches.hpp"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "Utils/ErrorHandling/ReportOf.hpp"

namespace {

using testing::HasSubstr;

// The rules as they are told, one character after the other. Exponential, and so the yardstick for
// what is not.
bool MatchesAsTold(const std::string& glob, const std::string& text) {
  if (glob.empty()) {
    return text.empty();
  }
  const std::string rest = glob.substr(1);
  if (glob[0] != '*') {
    return !text.empty() && (glob[0] == '?' || glob[0] == text[0]) &&
           MatchesAsTold(rest, text.substr(1));
  }
  if (rest.empty()) {
    return true;
  }
  for (std::size_t k = 0; k < text.size(); ++k) {
    if (MatchesAsTold(rest, text.substr(k))) {
      return true;
    }
  }
  return false;
}

// All strings over the alphabet up to the length.
std::vector<std::string> AllStrings(const std::string& alphabet, std::size_t maxLength) {
  std::vector<std::string> all{""};
  for (std::size_t i = 0; i < all.size() && all[i].size() < maxLength; ++i) {
    for (const char c : alphabet) {
      all.push_back(all[i] + c);
    }
  }
  return all;
}

TEST(GlobMatches, AgreesWithTheRulesForAllShortGlobsAndTexts) {
  const std::vector<std::string> texts = AllStrings("ab*", 5);
  std::size_t matches = 0;
  for (const std::string& glob : AllStrings("ab*?", 6)) {
    for (const std::string& text : texts) {
      const bool asTold = MatchesAsTold(glob, text);
      ASSERT_EQ(GlobMatches(glob, text), asTold) << "'" << glob << "' on '" << text << "'";
      matches += asTold ? 1 : 0;
    }
  }
  EXPECT_GT(matches, 100000U);
}

TEST(GlobMatches, OnlyStarAndQuestionMarkAreSpecial) {
  EXPECT_TRUE(GlobMatches("*.h5", "dir/x.h5"));
  EXPECT_FALSE(GlobMatches("*.h5", "dir/x.H5"));
  EXPECT_TRUE(GlobMatches("[ab]\\", "[ab]\\"));
  EXPECT_FALSE(GlobMatches("[ab]", "a"));
}

// Must not take exponential time, as it would if every '*' tried every start.
TEST(GlobMatches, ManyStarsOnALongText) {
  std::string glob;
  for (int i = 0; i < 500; ++i) {
    glob += "*a";
  }
  const std::string text(20000, 'a');
  EXPECT_TRUE(GlobMatches(glob, text));
  EXPECT_FALSE(GlobMatches(glob + "b", text));
}

TEST(GlobMatches, Alternatives) {
  EXPECT_TRUE(GlobMatches("x|y*", "yes"));
  EXPECT_FALSE(GlobMatches("x|y*", "no"));
  EXPECT_TRUE(GlobMatches("x|", "x"));  // the empty one is not reached
  EXPECT_TRUE(AnyGlobMatches({"a", "x|b"}, "b"));
  EXPECT_FALSE(AnyGlobMatches({}, "b"));

  EXPECT_THAT(ReportOf([] { GlobMatches("x|", "z"); }),
              HasReport("pieces[i]!=\"\"", "GlobMatches",
                        "GlobMatches with comma-separated globs encountered empty piece.\n"
                        "This can happen if there is a lone comma at the end.\nglob='x|'"));
  EXPECT_THAT(ReportOf([] { GlobMatches("(x|y)", "x"); }),
              HasReport("pieces.Size()>1", "GlobMatches",
                        "GlobMatches encountered |, but found only 1 piece.\n"
                        "Are there unmatched parentheses in the glob='(x|y)'?"));
  EXPECT_THAT(ReportOf([] { GlobMatches("z|(x|y)", "x"); }), HasSubstr("glob='(x|y)'"));
}

}  // namespace
