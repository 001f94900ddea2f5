// These functions take text apart, at delimiters, parentheses and tokens, and remove comments,
// blanks and prefixes. Only '(' and ')' nest; no other bracket and no quote is special. "Depth 0"
// is outside of all parentheses. Positions count from 0; std::string::npos is "not found".
#pragma once

#include <cstddef>
#include <string>

#include "Utils/Containers/MyVector.hpp"

#pragma GCC visibility push(default)

/// The pieces between the delimiters at depth 0, not trimmed: one more than there are delimiters,
/// so one empty piece for an empty text. An unclosed '(' hides the delimiters after it. A ')'
/// without its '(' fails as in FindWhileParsing.
MyVector<std::string> SplitStrings(const std::string& text, char delimiter);

/// Position of the first delimiter at depth 0, or npos. A ')' without its '(' before the delimiter
/// fails with a message that shows what was searched and what remained.
std::size_t FindWhileParsing(const std::string& text, char delimiter);

/// Searches from a start position, which is taken as depth 0. Any imbalance met before the
/// delimiter, an unclosed '(' at the end of the text included, fails with
/// "FindWhileParsingFast: Unbalanced parentheses.\n".
std::size_t FindWhileParsingFast(const std::string& text, std::size_t start, char delimiter);

/// Splits "head(inside)" at the first `left` and the last `right`; both parts are trimmed, and what
/// follows `right` is dropped. Without `left` the head is the whole text and `inside` is empty.
/// Fails when `right` is missing or stands before `left`.
void SplitParentheses(const std::string& text, std::string& head, std::string& inside,
                      const std::string& left = "(", const std::string& right = ")");

/// Splits at the outermost parentheses: "f(a)(b(c))" gives "f", "a", "", "b(c)", "". Pieces from
/// outside and from inside take turns, beginning and ending outside. Fails with "Too many closing
/// parentheses in string\n" or "Too many opening parentheses in string\n" and the text.
MyVector<std::string> SplitStringAtParentheses(const std::string& text);

/// Splits at the tokens found at depth 0; foundTokens[i] stood between pieces[i] and pieces[i+1].
/// The longest token that fits counts, and one that must not split protects its characters: with
/// tokens {"-"} and doNotSplit {"->"}, "a->b-c" gives "a->b" and "c". Empty tokens and unbalanced
/// parentheses fail.
void SplitStringAtTokens(const std::string& text, const MyVector<std::string>& tokens,
                         MyVector<std::string>& pieces, MyVector<std::string>& foundTokens,
                         const MyVector<std::string>& doNotSplit = {});

/// Each string with the prefix in front.
MyVector<std::string> PrefixStrings(const std::string& prefix,
                                    const MyVector<std::string>& strings);

/// The text without its comments, which run from a '#' up to, not including, the end of the line.
/// Nothing quotes a '#'.
std::string RemoveComments(const std::string& text);

std::string RemoveLeadingAndTrailingWhitespace(const std::string& text);

/// What stands between `open` and `close` if the two enclose the whole text, blanks around them
/// aside; else the text as it is. "(a),(b)" is not enclosed. One pair is removed, not more.
std::string RemoveOverallParenthesesIfPresent(const std::string& text, char open, char close);

bool CaseInsensitiveEqual(const std::string& a, const std::string& b);

/// The text without the prefix or suffix; the text as it is if it has none.
std::string RemovePrefix(const std::string& text, const std::string& prefix);
std::string RemoveSuffix(const std::string& text, const std::string& suffix);

#pragma GCC visibility pop
