#include "Utils/StringParsing/SplitStrings.hpp"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <vector>

#include "Utils/ErrorHandling/Require.hpp"

namespace {

// Tells where a search for a delimiter at depth 0 ended: at the delimiter, at a ')' without its '('
// (depth -1), or at the end of the text (npos).
struct DepthZeroSearch {
  std::size_t mPosition;
  int mDepth;
};

DepthZeroSearch FindAtDepthZero(const std::string& text, std::size_t start, char delimiter) {
  int depth = 0;
  for (std::size_t i = start; i < text.size(); ++i) {
    if (depth == 0 && text[i] == delimiter) {
      return {i, depth};
    }
    if (text[i] == '(') {
      ++depth;
    } else if (text[i] == ')' && --depth < 0) {
      return {i, depth};
    }
  }
  return {std::string::npos, depth};
}

std::size_t FindWhileParsingFrom(const std::string& text, std::size_t start, char delimiter) {
  const auto [position, depth] = FindAtDepthZero(text, start, delimiter);
  REQUIRE(depth>=0, "FindWhileParsing: Trying to match a string to the form\n"
                        << "Bla" << delimiter << "Bleh\n"
                        << "To do this, the string is being searched for the\n"
                        << "delimeter '" << delimiter << "' one character at a time,\n"
                        << "but before finding the delimiter, I found a closing\n"
                        << "parenthesis with no matching opening parenthesis.\n"
                        << "Characters that have been searched so far:\n"
                        << text.substr(start, position - start)
                        << "\nRemaining characters in string:\n"
                        << text.substr(position));
  return position;
}

bool IsSpace(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

// The longest of the tokens that the text continues with at the position; empty if none does.
std::string_view LongestTokenAt(std::string_view text, std::size_t position,
                                const MyVector<std::string>& tokens) {
  std::string_view longest;
  for (const std::string& token : tokens) {
    if (token.size() > longest.size() && text.substr(position).starts_with(token)) {
      longest = token;
    }
  }
  return longest;
}

}  // namespace

MyVector<std::string> SplitStrings(const std::string& text, char delimiter) {
  std::vector<std::string> pieces;
  std::size_t start = 0;
  std::size_t end = 0;
  do {
    end = FindWhileParsingFrom(text, start, delimiter);
    pieces.push_back(text.substr(start, end - start));
    start = end + 1;
  } while (end != std::string::npos);
  return MyVector<std::string>(pieces);
}

std::size_t FindWhileParsing(const std::string& text, char delimiter) {
  return FindWhileParsingFrom(text, 0, delimiter);
}

std::size_t FindWhileParsingFast(const std::string& text, std::size_t start, char delimiter) {
  const auto [position, depth] = FindAtDepthZero(text, start, delimiter);
  REQUIRE(depth==0, "FindWhileParsingFast: Unbalanced parentheses.\n");
  return position;
}

void SplitParentheses(const std::string& text, std::string& head, std::string& inside,
                      const std::string& left, const std::string& right) {
  using std::string;  // the reports show the conditions in this form
  const std::size_t pLeft = text.find(left);
  if (pLeft == string::npos) {
    head = RemoveLeadingAndTrailingWhitespace(text);
    inside.clear();
    return;
  }
  const std::size_t pRight = text.rfind(right);
  REQUIRE(string::npos!=pRight, "SplitParentheses found Left = "
                                    << left << " but not Right = " << right << " in the string:\n"
                                    << text);
  REQUIRE(pLeft<pRight, "SplitParentheses found Right = " << right << " before Left = " << left
                                                          << " in the string:\n"
                                                          << text);
  const std::size_t begin = std::min(pLeft + left.size(), pRight);
  const std::string between = text.substr(begin, pRight - begin);
  head = RemoveLeadingAndTrailingWhitespace(text.substr(0, pLeft));
  inside = RemoveLeadingAndTrailingWhitespace(between);
}

MyVector<std::string> SplitStringAtParentheses(const std::string& text) {
  std::vector<std::string> pieces;
  int ParenthesisDepth = 0;
  std::size_t start = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    bool pieceEnds = false;
    if (text[i] == '(') {
      pieceEnds = ParenthesisDepth++ == 0;
    } else if (text[i] == ')') {
      REQUIRE(ParenthesisDepth>0, "Too many closing parentheses in string\n" << text);
      pieceEnds = --ParenthesisDepth == 0;
    }
    if (pieceEnds) {
      pieces.push_back(text.substr(start, i - start));
      start = i + 1;
    }
  }
  REQUIRE(ParenthesisDepth==0, "Too many opening parentheses in string\n" << text);
  pieces.push_back(text.substr(start));
  return MyVector<std::string>(pieces);
}

void SplitStringAtTokens(const std::string& text, const MyVector<std::string>& tokens,
                         MyVector<std::string>& pieces, MyVector<std::string>& foundTokens,
                         const MyVector<std::string>& doNotSplit) {
  for (const MyVector<std::string>* list : {&tokens, &doNotSplit}) {
    REQUIRE(std::find(list->begin(), list->end(), "")==list->end(),
            "SplitStringAtTokens: empty token for the string:\n"
                << text);
  }
  std::vector<std::string> foundPieces;
  std::vector<std::string> found;
  std::size_t start = 0;
  int depth = 0;
  for (std::size_t i = 0; i < text.size();) {
    const std::string_view token = depth == 0 ? LongestTokenAt(text, i, tokens) : "";
    const std::string_view kept = depth == 0 ? LongestTokenAt(text, i, doNotSplit) : "";
    if (!token.empty() && token.size() > kept.size()) {
      foundPieces.push_back(text.substr(start, i - start));
      found.emplace_back(token);
      i += token.size();
      start = i;
    } else if (!kept.empty()) {
      i += kept.size();
    } else {
      depth += text[i] == '(' ? 1 : text[i] == ')' ? -1 : 0;
      REQUIRE(depth>=0, "SplitStringAtTokens: Unbalanced parentheses.\n" << text);
      ++i;
    }
  }
  REQUIRE(depth==0, "SplitStringAtTokens: Unbalanced parentheses.\n" << text);
  foundPieces.push_back(text.substr(start));
  pieces = MyVector<std::string>(foundPieces);
  foundTokens = MyVector<std::string>(found);
}

MyVector<std::string> PrefixStrings(const std::string& prefix,
                                    const MyVector<std::string>& strings) {
  MyVector<std::string> prefixed = strings;
  for (std::string& string : prefixed) {
    string.insert(0, prefix);
  }
  return prefixed;
}

std::string RemoveComments(const std::string& text) {
  std::string kept;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t comment = text.find('#', start);
    kept.append(text, start, comment - start);
    // The newline stays; a comment without one takes the rest.
    start = comment == std::string::npos ? comment : text.find('\n', comment);
  }
  return kept;
}

std::string RemoveLeadingAndTrailingWhitespace(const std::string& text) {
  const auto begin = std::find_if_not(text.begin(), text.end(), IsSpace);
  const auto end = std::find_if_not(text.rbegin(), std::make_reverse_iterator(begin), IsSpace);
  return std::string(begin, end.base());
}

std::string RemoveOverallParenthesesIfPresent(const std::string& text, char open, char close) {
  const std::string trimmed = RemoveLeadingAndTrailingWhitespace(text);
  if (trimmed.size() < 2 || trimmed.front() != open || trimmed.back() != close) {
    return text;
  }
  // The first one must be closed by the last, and not before.
  int depth = 0;
  for (std::size_t i = 0; i + 1 < trimmed.size(); ++i) {
    depth += trimmed[i] == open ? 1 : trimmed[i] == close ? -1 : 0;
    if (depth == 0) {
      return text;
    }
  }
  return depth == 1 ? trimmed.substr(1, trimmed.size() - 2) : text;
}

bool CaseInsensitiveEqual(const std::string& a, const std::string& b) {
  const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [lower](char x, char y) { return lower(x) == lower(y); });
}

std::string RemovePrefix(const std::string& text, const std::string& prefix) {
  return text.starts_with(prefix) ? text.substr(prefix.size()) : text;
}

std::string RemoveSuffix(const std::string& text, const std::string& suffix) {
  return text.ends_with(suffix) ? text.substr(0, text.size() - suffix.size()) : text;
}
