// The input is a glob, a newline and a text. GlobMatches must give the answer that the rules give,
// and in time that does not explode.
#include <algorithm>
#include <optional>
#include <vector>

#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/StringParsing/GlobMatches.hpp"

namespace {

// The rules of the header, for one alternative: a table of what every tail of the glob says of
// every tail of the text, filled from the ends.
bool MatchesAsTold(std::string_view glob, std::string_view text) {
  std::vector<char> matches(text.size() + 1, 0);  // for the tail of the glob behind the current one
  matches.back() = 1;
  for (std::size_t g = glob.size(); g-- > 0;) {
    if (glob[g] == '*' && g + 1 == glob.size()) {
      matches.assign(text.size() + 1, 1);
      continue;
    }
    std::vector<char> here(text.size() + 1, 0);
    for (std::size_t t = text.size(); t-- > 0;) {
      here[t] = glob[g] == '*' ? matches[t] | here[t + 1]
                               : (glob[g] == '?' || glob[g] == text[t] ? matches[t + 1] : 0);
    }
    matches = here;
  }
  return matches.front() != 0;
}

// None for what is to be reported.
using Answer = std::optional<bool>;

Answer AnswerAsTold(const std::string& glob, std::string_view text) {
  if (glob.find('|') == std::string::npos) {
    return MatchesAsTold(glob, text);
  }
  std::vector<std::string> pieces(1);
  int depth = 0;
  for (const char c : glob) {
    depth += c == '(' ? 1 : c == ')' ? -1 : 0;
    if (depth < 0) {
      return std::nullopt;
    }
    if (c == '|' && depth == 0) {
      pieces.emplace_back();
    } else {
      pieces.back() += c;
    }
  }
  for (const std::string& piece : pieces) {
    const bool isBad = piece.empty() || piece.find('|') != std::string::npos;
    if (isBad || MatchesAsTold(piece, text)) {
      return isBad ? Answer() : true;
    }
  }
  return false;
}

void Compare(const std::string& glob, const std::string& text) {
  Answer answer;
  Fuzz::Succeeds([&] { answer = GlobMatches(glob, text); });
  FUZZ_CHECK(answer == AnswerAsTold(glob, text), "'" + glob + "' on '" + text + "'");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(Fuzz::Text(data, size));
  const std::size_t newline = std::min(input.find('\n'), size);
  const std::string glob = input.substr(0, newline);
  const std::string text = input.substr(std::min(newline + 1, size));
  Compare(glob, text);
  // Time explodes on long texts that repeat themselves, and on globs with many stars.
  std::string longText;
  for (int i = 0; i < 16; ++i) {
    longText += text;
  }
  Compare(glob, longText);
  if (size <= 32) {
    std::string longGlob;
    for (int i = 0; i < 8; ++i) {
      longGlob.append(glob).append("*");
    }
    Compare(longGlob, longText);
  }
  return 0;
}
