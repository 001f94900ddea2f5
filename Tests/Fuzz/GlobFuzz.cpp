// The input is a glob, a newline and a text. GlobMatches must give the answer that the rules give,
// and in time that does not explode.
#include <algorithm>
#include <optional>
#include <vector>

#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/StringParsing/GlobMatches.hpp"
#include "Utils/StringParsing/SplitStrings.hpp"

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

// No answer to a glob with an alternative that is reached and is to be reported.
std::optional<bool> AnswerAsTold(const std::string& glob, const std::string& text) {
  if (glob.find('|') == std::string::npos) {
    return MatchesAsTold(glob, text);
  }
  for (const std::string& piece : SplitStrings(glob, '|')) {
    const bool isBad = piece.empty() || piece.find('|') != std::string::npos;
    if (isBad || MatchesAsTold(piece, text)) {
      return isBad ? std::nullopt : std::optional(true);
    }
  }
  return false;
}

void Compare(const std::string& glob, const std::string& text) {
  std::optional<bool> answer, expected;
  Fuzz::Succeeds([&] { answer = GlobMatches(glob, text); });
  Fuzz::Succeeds([&] { expected = AnswerAsTold(glob, text); });
  FUZZ_CHECK(answer == expected, "'" + glob + "' on '" + text + "'");
}

std::string Repeated(const std::string& text, int times) {
  return times == 0 ? "" : text + Repeated(text, times - 1);
}

}  // namespace

void Fuzz::Target(std::string_view input) {
  const std::string glob(input.substr(0, input.find('\n')));
  const std::string text(input.substr(std::min(glob.size() + 1, input.size())));
  Compare(glob, text);
  // Time explodes on long texts that repeat themselves, and on globs with many stars.
  Compare(glob, Repeated(text, 16));
  if (input.size() <= 32) {
    Compare(Repeated(glob + "*", 8), Repeated(text, 16));
  }
}
