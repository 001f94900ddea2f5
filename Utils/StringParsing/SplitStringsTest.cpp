#include "Utils/StringParsing/SplitStrings.hpp"

#include <gmock/gmock.h>

#include "Utils/ErrorHandling/ReportOf.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(SplitStrings, DelimitersCountOutsideParenthesesOnly) {
  const struct {
    const char* mText;
    MyVector<std::string> mPieces;
  } cases[] = {
      {"", {""}},
      {"a", {"a"}},
      {"a, b", {"a", " b"}},
      {",a,", {"", "a", ""}},
      {"f(a,(b,c)),d", {"f(a,(b,c))", "d"}},
      {"a,(b,c", {"a", "(b,c"}},  // the unclosed parenthesis hides the rest
  };
  for (const auto& c : cases) {
    EXPECT_EQ(SplitStrings(c.mText, ','), c.mPieces) << c.mText;
  }
  EXPECT_EQ(FindWhileParsing("(;)", ';'), std::string::npos);
  EXPECT_EQ(FindWhileParsingFast("a;(b;);c", 2, ';'), 6U);
  EXPECT_EQ(FindWhileParsingFast("a;b", 2, ';'), std::string::npos);
}

TEST(SplitStrings, UnbalancedParenthesesAreReported) {
  EXPECT_THAT(ReportOf([] { FindWhileParsing("a(b)c)d;e", ';'); }),
              HasSubstr("FindWhileParsing: Trying to match a string to the form\n"
                        "Bla;Bleh\n"
                        "To do this, the string is being searched for the\n"
                        "delimeter ';' one character at a time,\n"
                        "but before finding the delimiter, I found a closing\n"
                        "parenthesis with no matching opening parenthesis.\n"
                        "Characters that have been searched so far:\n"
                        "a(b)c\nRemaining characters in string:\n)d;e"));
  EXPECT_EQ(FindWhileParsing("a;b)", ';'), 1U);
  EXPECT_THAT(ReportOf([] { SplitStrings("a,b),c", ','); }), HasSubstr(":\n)"));
  for (const char* text : {"a)b;", "(a;b"}) {
    EXPECT_THAT(ReportOf([text] { FindWhileParsingFast(text, 0, ';'); }),
                HasSubstr("FindWhileParsingFast: Unbalanced parentheses.\n"))
        << text;
  }
}

TEST(SplitStringAtParentheses, PiecesFromOutsideAndInsideTakeTurns) {
  EXPECT_THAT(SplitStringAtParentheses("f(a)(b(c))"), ElementsAre("f", "a", "", "b(c)", ""));
  EXPECT_THAT(ReportOf([] { SplitStringAtParentheses("a)("); }),
              HasReport("ParenthesisDepth>0", "SplitStrings",
                        "Too many closing parentheses in string\na)("));
  EXPECT_THAT(ReportOf([] { SplitStringAtParentheses("(a(b)"); }),
              HasSubstr("Too many opening parentheses in string\n(a(b)"));
}

TEST(SplitParentheses, FirstLeftAndLastRight) {
  std::string head;
  std::string inside;
  SplitParentheses(" Foo ( a(b) ) rest", head, inside);
  EXPECT_EQ(head, "Foo");
  EXPECT_EQ(inside, "a(b)");
  SplitParentheses(" Foo) ", head, inside);
  EXPECT_EQ(head, "Foo)");
  EXPECT_EQ(inside, "");
  EXPECT_THAT(ReportOf([&] { SplitParentheses("a(b", head, inside); }),
              HasReport("string::npos!=pRight", "SplitStrings",
                        "SplitParentheses found Left = ( but not Right = ) in the string:\na(b"));
  EXPECT_THAT(ReportOf([&] { SplitParentheses("a)(b", head, inside); }),
              HasReport("pLeft<pRight", "SplitStrings",
                        "SplitParentheses found Right = ) before Left = ( in the string:\na)(b"));
}

TEST(SplitStringAtTokens, LongestTokenAndProtectedOnes) {
  MyVector<std::string> pieces;
  MyVector<std::string> found;
  SplitStringAtTokens("a->b-c<=(d-e)<f", {"-", "<", "<="}, pieces, found, {"->"});
  EXPECT_THAT(pieces, ElementsAre("a->b", "c", "(d-e)", "f"));
  EXPECT_THAT(found, ElementsAre("-", "<=", "<"));
  EXPECT_THAT(ReportOf([&] { SplitStringAtTokens("a", {""}, pieces, found); }),
              HasSubstr("empty token"));
  EXPECT_THAT(ReportOf([&] { SplitStringAtTokens("a)-b", {"-"}, pieces, found); }),
              HasSubstr("Unbalanced parentheses.\na)-b"));
}

TEST(RemoveComments, TheNewlineStays) {
  EXPECT_EQ(RemoveComments("a # b\nc#\n#d"), "a \nc\n");
  EXPECT_EQ(RemoveComments("# all"), "");
}

TEST(Trimming, BlanksParenthesesAndAffixes) {
  EXPECT_EQ(RemoveLeadingAndTrailingWhitespace(" \t a b\n\v"), "a b");
  EXPECT_EQ(RemoveLeadingAndTrailingWhitespace(" \xE9 "), "\xE9");
  EXPECT_EQ(RemoveLeadingAndTrailingWhitespace(" \n"), "");

  const struct {
    const char* mText;
    const char* mInside;
  } cases[] = {{"(a, b)", "a, b"}, {" (a) ", "a"},  {"((a))", "(a)"}, {"(a),(b)", "(a),(b)"},
               {"()", ""},         {"(", "("},      {"((a)", "((a)"}, {")a(", ")a("},
               {"a(b)", "a(b)"},   {"(a))", "(a))"}};
  for (const auto& c : cases) {
    EXPECT_EQ(RemoveOverallParenthesesIfPresent(c.mText, '(', ')'), c.mInside) << c.mText;
  }
  EXPECT_EQ(RemovePrefix("a.a.h5", "a."), "a.h5");
  EXPECT_EQ(RemoveSuffix("a.h5.h5", ".h5"), "a.h5");
  EXPECT_EQ(RemoveSuffix("h5", ".h5"), "h5");
  EXPECT_THAT(PrefixStrings("a/", {"b", ""}), ElementsAre("a/b", "a/"));
  EXPECT_TRUE(CaseInsensitiveEqual("YeS", "yEs"));
  EXPECT_FALSE(CaseInsensitiveEqual("yes", "yess"));
}

// Text of any depth and length, as it may stand in a file: no recursion.
TEST(SplitStrings, MegabytesOfParentheses) {
  const std::string deep = std::string(2'000'000, '(') + "," + std::string(2'000'000, ')');
  EXPECT_EQ(SplitStrings(deep + ",a", ',').Size(), 2);
  EXPECT_EQ(RemoveOverallParenthesesIfPresent(deep, '(', ')').size(), deep.size() - 2);
  EXPECT_EQ(SplitStringAtParentheses(deep).Size(), 3);
  EXPECT_EQ(FindWhileParsingFast(deep + ";", 0, ';'), deep.size());
}

}  // namespace
