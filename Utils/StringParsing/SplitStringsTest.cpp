#include "Utils/StringParsing/SplitStrings.hpp"

#include <gmock/gmock.h>

#include <string>

#include "Utils/ErrorHandling/TestSupport/ReportOf.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(SplitStrings, DelimitersCountOutsideParenthesesOnly) {
  EXPECT_THAT(SplitStrings("", ','), ElementsAre(""));
  EXPECT_THAT(SplitStrings("f(a,(b,c)), d,,(e,f", ','),
              ElementsAre("f(a,(b,c))", " d", "", "(e,f"));
  EXPECT_EQ(FindWhileParsing("a;b)", ';'), 1U);
  EXPECT_EQ(FindWhileParsing("(;)", ';'), std::string::npos);
  EXPECT_EQ(FindWhileParsingFast("a;(b;);c", 2, ';'), 6U);
  EXPECT_THAT(ReportOf([] { SplitStrings("a,b(c)d),e", ','); }),
              HasSubstr("parenthesis with no matching opening parenthesis.\n"
                        "Characters that have been searched so far:\nb(c)d\n"
                        "Remaining characters in string:\n),e"));
  for (const char* text : {"a)b;", "(a;b"}) {
    EXPECT_THAT(ReportOf([&] { FindWhileParsingFast(text, 0, ';'); }),
                HasSubstr("FindWhileParsingFast: Unbalanced parentheses.\n"));
  }
}

std::string HeadAndInside(const std::string& text, const char* left = "(",
                          const char* right = ")") {
  std::string head;
  std::string inside = "before";
  SplitParentheses(text, head, inside, left, right);
  return head + "|" + inside;
}

TEST(SplitStrings, AtParentheses) {
  EXPECT_EQ(HeadAndInside(" Foo ( a(b) ) rest"), "Foo|a(b)");
  EXPECT_EQ(HeadAndInside(" Foo) "), "Foo)|");
  EXPECT_EQ(HeadAndInside("a[[]b", "[[", "[]"), "a|");
  EXPECT_THAT(ReportOf([] { HeadAndInside("a(b"); }),
              HasSubstr("SplitParentheses found Left = ( but not Right = ) in the string:\na(b"));
  EXPECT_THAT(ReportOf([] { HeadAndInside("a)(b"); }),
              HasSubstr("SplitParentheses found Right = ) before Left = ( in the string:\na)(b"));
  EXPECT_THAT(SplitStringAtParentheses("f(a)(b(c))"), ElementsAre("f", "a", "", "b(c)", ""));
  EXPECT_THAT(ReportOf([] { SplitStringAtParentheses("a)("); }),
              HasSubstr("Too many closing parentheses in string\na)("));
  EXPECT_THAT(ReportOf([] { SplitStringAtParentheses("(a(b)"); }),
              HasSubstr("Too many opening parentheses in string\n(a(b)"));
}

TEST(SplitStrings, AtTheLongestTokenButNotWithinOthers) {
  MyVector<std::string> pieces;
  MyVector<std::string> found;
  SplitStringAtTokens("a->b-c<=(d-e)<f->>g+", {"-", "<=", "<", "->>", "+"}, pieces, found,
                      {"->", "+"});
  EXPECT_THAT(pieces, ElementsAre("a->b", "c", "(d-e)", "f", "g+"));
  EXPECT_THAT(found, ElementsAre("-", "<=", "<", "->>"));
  const auto report = [&](const std::string& text, const char* token, const char* kept) {
    return ReportOf([&] { SplitStringAtTokens(text, {token}, pieces, found, {kept}); });
  };
  EXPECT_THAT(report("a", "", "-"), HasSubstr("Tokens: empty token for the string:\na"));
  EXPECT_THAT(report("a", "-", ""), HasSubstr("Tokens: empty token for the string:\na"));
  EXPECT_THAT(report("a)-(b", "-", "+"), HasSubstr("Tokens: Unbalanced parentheses.\na)-(b"));
  EXPECT_THAT(report("a(-b", "-", "+"), HasSubstr("Tokens: Unbalanced parentheses.\na(-b"));
}

TEST(SplitStrings, CommentsBlanksParenthesesAndAffixes) {
  EXPECT_EQ(RemoveComments("a # b\nc#\n#d"), "a \nc\n");
  EXPECT_EQ(RemoveLeadingAndTrailingWhitespace(" \t \xE9 b\n\v"), "\xE9 b");
  EXPECT_EQ(RemoveLeadingAndTrailingWhitespace(" \n"), "");
  for (const char* text : {"(a),(b)", "(", "((a)", ")a(", "a(b)", "(a))"}) {
    EXPECT_EQ(RemoveOverallParenthesesIfPresent(text, '(', ')'), text);
  }
  EXPECT_EQ(RemoveOverallParenthesesIfPresent(" ((a)) ", '(', ')'), "(a)");
  EXPECT_EQ(RemovePrefix("a.a.h5", "a.") + RemoveSuffix("a.h5.h5", ".h5"), "a.h5a.h5");
  EXPECT_EQ(RemovePrefix("a", "a.") + RemoveSuffix("h5", ".h5"), "ah5");
  EXPECT_THAT(PrefixStrings("a", {"b", ""}), ElementsAre("ab", "a"));
  EXPECT_TRUE(CaseInsensitiveEqual("YeS", "yEs") && !CaseInsensitiveEqual("yes", "yess"));
  // Text of any depth and length, as it may stand in a file: no recursion.
  const std::string deep = std::string(2'000'000, '(') + "," + std::string(2'000'000, ')');
  EXPECT_EQ(SplitStrings(deep + ",a", ',').Size(), 2);
  EXPECT_EQ(RemoveOverallParenthesesIfPresent(deep, '(', ')').size(), deep.size() - 2);
}

}  // namespace
