#include "Utils/StringParsing/SplitStrings.hpp"

#include <gmock/gmock.h>

#include <array>
#include <functional>
#include <string>
#include <utility>

#include "Utils/ErrorHandling/ReportOf.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(SplitStrings, DelimitersCountOutsideParenthesesOnly) {
  EXPECT_THAT(SplitStrings("", ','), ElementsAre(""));
  EXPECT_THAT(SplitStrings(",a, b,", ','), ElementsAre("", "a", " b", ""));
  EXPECT_THAT(SplitStrings("f(a,(b,c)),d,(e,f", ','), ElementsAre("f(a,(b,c))", "d", "(e,f"));
  EXPECT_EQ(FindWhileParsing("a;b)", ';'), 1U);
  EXPECT_EQ(FindWhileParsing("(;)", ';'), std::string::npos);
  EXPECT_EQ(FindWhileParsingFast("a;(b;);c", 2, ';'), 6U);
  EXPECT_EQ(FindWhileParsingFast("a;b", 2, ';'), std::string::npos);
  EXPECT_THAT(SplitStringAtParentheses("f(a)(b(c))"), ElementsAre("f", "a", "", "b(c)", ""));
}

TEST(SplitStrings, FirstLeftAndLastRight) {
  const std::array<std::string, 5> cases[] = {{" Foo ( a(b) ) rest", "(", ")", "Foo", "a(b)"},
                                              {" Foo) ", "(", ")", "Foo)", ""},
                                              {"a[[]b", "[[", "[]", "a", ""}};
  for (const auto& [text, left, right, expectedHead, expectedInside] : cases) {
    std::string head;
    std::string inside = "before";
    SplitParentheses(text, head, inside, left, right);
    EXPECT_EQ(head + "|" + inside, expectedHead + "|" + expectedInside);
  }
}

TEST(SplitStrings, LongestTokenAndProtectedOnes) {
  MyVector<std::string> pieces;
  MyVector<std::string> found;
  SplitStringAtTokens("a->b-c<=(d-e)<f->>g", {"-", "<=", "<", "->>"}, pieces, found, {"->"});
  EXPECT_THAT(pieces, ElementsAre("a->b", "c", "(d-e)", "f", "g"));
  EXPECT_THAT(found, ElementsAre("-", "<=", "<", "->>"));
}

TEST(SplitStrings, WhatCannotBeTakenApartIsReported) {
  std::string head;
  std::string inside;
  MyVector<std::string> pieces;
  const std::pair<std::function<void()>, const char*> cases[] = {
      {[] { SplitStrings("a,b(c)d),e", ','); },
       "FindWhileParsing: Trying to match a string to the form\nBla,Bleh\n"
       "To do this, the string is being searched for the\n"
       "delimeter ',' one character at a time,\n"
       "but before finding the delimiter, I found a closing\n"
       "parenthesis with no matching opening parenthesis.\n"
       "Characters that have been searched so far:\nb(c)d\n"
       "Remaining characters in string:\n),e"},
      {[] { FindWhileParsingFast("a)b;", 0, ';'); },
       "FindWhileParsingFast: Unbalanced parentheses.\n"},
      {[] { FindWhileParsingFast("(a;b", 0, ';'); },
       "FindWhileParsingFast: Unbalanced parentheses.\n"},
      {[] { SplitStringAtParentheses("a)("); }, "Too many closing parentheses in string\na)("},
      {[] { SplitStringAtParentheses("(a(b)"); }, "Too many opening parentheses in string\n(a(b)"},
      {[&] { SplitParentheses("a(b", head, inside); },
       "SplitParentheses found Left = ( but not Right = ) in the string:\na(b"},
      {[&] { SplitParentheses("a)(b", head, inside); },
       "SplitParentheses found Right = ) before Left = ( in the string:\na)(b"},
      {[&] {
         SplitStringAtTokens("a", {"-", ""}, pieces, pieces);
       },
       "SplitStringAtTokens: empty token for the string:\na"},
      {[&] { SplitStringAtTokens("a", {"-"}, pieces, pieces, {""}); },
       "SplitStringAtTokens: empty token for the string:\na"},
      {[&] { SplitStringAtTokens("a)-(b", {"-"}, pieces, pieces); },
       "SplitStringAtTokens: Unbalanced parentheses.\na)-(b"},
      {[&] { SplitStringAtTokens("a(-b", {"-"}, pieces, pieces); },
       "SplitStringAtTokens: Unbalanced parentheses.\na(-b"}};
  for (const auto& [action, message] : cases) {
    EXPECT_THAT(ReportOf(action), HasSubstr(message));
  }
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
  EXPECT_EQ(RemoveSuffix("a.h5.h5", ".h5") + RemoveSuffix("h5", ".h5"), "a.h5h5");
  EXPECT_THAT(PrefixStrings("a", {"b", ""}), ElementsAre("ab", "a"));
  EXPECT_TRUE(CaseInsensitiveEqual("YeS", "yEs") && !CaseInsensitiveEqual("yes", "yess"));
  // Text of any depth and length, as it may stand in a file: no recursion.
  const std::string deep = std::string(2'000'000, '(') + "," + std::string(2'000'000, ')');
  EXPECT_EQ(SplitStrings(deep + ",a", ',').Size(), 2);
  EXPECT_EQ(RemoveOverallParenthesesIfPresent(deep, '(', ')').size(), deep.size() - 2);
}

}  // namespace
