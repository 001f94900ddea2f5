#include "Utils/StringParsing/GlobMatches.hpp"

#include <algorithm>
#include <cstddef>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/StringParsing/SplitStrings.hpp"

namespace {

// A '*' that is not last needs a character of text at its position. What follows it asks for that
// character anyway, unless only '*' follow: so the rule shows in globs that end in "**" alone, and
// there "**" means what "?*" means.
std::string SpelledOut(std::string glob) {
  if (glob.ends_with("**")) {
    glob[glob.size() - 2] = '?';
  }
  return glob;
}

// When a later character does not fit, only the start after the latest '*' is moved: giving more
// text to an earlier one cannot help, since the latest could swallow it as well. Hence no recursion
// and no exponential time.
bool MatchesWithoutAlternatives(const std::string& glob, const std::string& text) {
  std::size_t g = 0;
  std::size_t t = 0;
  std::size_t latestStar = std::string::npos;
  std::size_t afterStar = 0;  // where in the text the rest of the glob was tried last
  while (t < text.size()) {
    if (g < glob.size() && glob[g] == '*') {
      latestStar = g++;
      afterStar = t;
    } else if (g < glob.size() && (glob[g] == '?' || glob[g] == text[t])) {
      ++g;
      ++t;
    } else if (latestStar != std::string::npos) {
      g = latestStar + 1;
      t = ++afterStar;
    } else {
      return false;
    }
  }
  return glob.find_first_not_of('*', g) == std::string::npos;
}

}  // namespace

bool GlobMatches(const std::string& glob, const std::string& text) {
  if (glob.find('|') == std::string::npos) {
    return MatchesWithoutAlternatives(SpelledOut(glob), text);
  }
  const MyVector<std::string> pieces = SplitStrings(glob, '|');
  REQUIRE(pieces.Size()>1, "GlobMatches encountered |, but found only "
                               << pieces.Size()
                               << " piece.\nAre there unmatched parentheses in the glob='" << glob
                               << "'?");
  for (std::ptrdiff_t i = 0; i < pieces.Size(); ++i) {
    // The message speaks of commas although '|' separates: scripts know report and condition in
    // this form.
    // NOLINTNEXTLINE(readability-container-size-empty)
    REQUIRE(pieces[i]!="",
            "GlobMatches with comma-separated globs encountered empty piece.\n"
                << "This can happen if there is a lone comma at the end.\nglob='" << glob << "'");
    if (GlobMatches(pieces[i], text)) {
      return true;
    }
  }
  return false;
}

bool AnyGlobMatches(const MyVector<std::string>& globs, const std::string& text) {
  return std::any_of(globs.begin(), globs.end(),
                     [&text](const std::string& glob) { return GlobMatches(glob, text); });
}
