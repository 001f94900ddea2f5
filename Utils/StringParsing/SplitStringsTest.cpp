#include "Utils/StringParsing/SplitStrings.hpp"

#include <gmock/gmock.h>

#include "Utils/ErrorHandling/ReportOf.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(SplitStrings, DelimitersCountOutsideParenthesesOnly) {
  EXPECT_THAT(SplitStrings("", ','), ElementsAre(""));
  EXPECT_THAT(SplitStrings(",a, b,", ','), ElementsAre("", "a", " b", ""));
  EXPECT_THAT(SplitStrings("f(a,(b,c)),d", ','), ElementsAre("f(a,(b,c))", "d"));
  EXPECT_THAT(SplitStrings("a,(b,c", ','), ElementsAre("a", "(b,c"));
  EXPECT_EQ(FindWhileParsing("a;b)", ';'), 1U);
  EXPECT_EQ(FindWhileParsing("(;)", ';'), std::string::npos);
  EXPECT_EQ(FindWhileParsingFast("a;(b;);c", 2, ';'), 6U);
  EXPECT_EQ(FindWhileParsingFast("a;b", 2, ';'), std::string::npos);
  EXPECT_THAT(SplitStringAtParentheses("f(a)(b(c))"), ElementsAre("f", "a", "", "b(c)", ""));
}

TEST(SplitStrings, UnbalancedParenthesesAreReported) {
  EXPECT_THAT(ReportOf([] { FindWhileParsing("a(b)c)d;e", ';'); }),
              HasSubstr("Characters that have been searched so far:\n"
                        "a(b)c\nRemaining characters in string:\n)d;e"));
  EXPECT_THAT(ReportOf([] { SplitStrings("a,b),c", ','); }), HasSubstr("string:\n),c"));
  for (const char* text : {"a)b;", "(a;b"}) {
    EXPECT_THAT(ReportOf([text] { FindWhileParsingFast(text, 0, ';'); }),
                HasSubstr("FindWhileParsingFast: Unbalanced parentheses.\n"));
  }
  EXPECT_THAT(ReportOf([] { SplitStringAtParentheses("a)("); }),
              HasSubstr("Too many closing parentheses in string\na)("));
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
              HasSubstr("SplitParentheses found Left = ( but not Right = ) in the string:\na(b"));
  EXPECT_THAT(ReportOf([&] { SplitParentheses("a)(b", head, inside); }),
              HasSubstr("SplitParentheses found Right = ) before Left = ( in the string:\na)(b"));
}

TEST(SplitStringAtTokens, LongestTokenAndProtectedOnes) {
  MyVector<std::string> pieces;
  MyVector<std::string> found;
  SplitStringAtTokens("a->b-c<=(d-e)<f", {"-", "<=", "<"}, pieces, found, {"->"});
  EXPECT_THAT(pieces, ElementsAre("a->b", "c", "(d-e)", "f"));
  EXPECT_THAT(found, ElementsAre("-", "<=", "<"));
  EXPECT_THAT(ReportOf([&] { SplitStringAtTokens("a", {""}, pieces, found); }),
              HasSubstr("empty token"));
  EXPECT_THAT(ReportOf([&] { SplitStringAtTokens("a)-b", {"-"}, pieces, found); }),
              HasSubstr("Unbalanced parentheses.\na)-b"));
}

TEST(SplitStrings, CommentsBlanksParenthesesAndAffixes) {
  EXPECT_EQ(RemoveComments("a # b\nc#\n#d"), "a \nc\n");
  EXPECT_EQ(RemoveLeadingAndTrailingWhitespace(" \t \xE9 b\n\v"), "\xE9 b");
  EXPECT_EQ(RemoveLeadingAndTrailingWhitespace(" \n"), "");
  for (const char* text : {"(a),(b)", "(", "((a)", ")a(", "a(b)", "(a))"}) {
    EXPECT_EQ(RemoveOverallParenthesesIfPresent(text, '(', ')'), text);
  }
  EXPECT_EQ(RemoveOverallParenthesesIfPresent(" ((a)) ", '(', ')'), "(a)");
  EXPECT_EQ(RemoveOverallParenthesesIfPresent("()", '(', ')'), "");
  EXPECT_EQ(RemovePrefix("a.a.h5", "a."), "a.h5");
  EXPECT_EQ(RemoveSuffix("a.h5.h5", ".h5"), "a.h5");
  EXPECT_EQ(RemoveSuffix("h5", ".h5"), "h5");
  EXPECT_TRUE(CaseInsensitiveEqual("YeS", "yEs"));
  EXPECT_FALSE(CaseInsensitiveEqual("yes", "yess"));
}

// Text of any depth and length, as it may stand in a file: no recursion.
TEST(SplitStrings, MegabytesOfParentheses) {
  const std::string deep = std::string(2'000'000, '(') + "," + std::string(2'000'000, ')');
  EXPECT_EQ(SplitStrings(deep + ",a", ',').Size(), 2);
  EXPECT_EQ(RemoveOverallParenthesesIfPresent(deep, '(', ')').size(), deep.size() - 2);
}

}  // namespace
