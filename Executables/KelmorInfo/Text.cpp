#include "Executables/KelmorInfo/Text.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <ostream>
#include <ranges>

#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/Process/Formatting.hpp"
#include "Utils/Process/Utf8.hpp"

namespace {

bool IsContinuation(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

constexpr char sEllipsis[] = "\xE2\x80\xA6";

// What names have in common, in whole words: "run/seg10.h5" and "run/seg12.h5" differ in all of
// "seg10" and "seg12".
struct CommonParts {
  CommonParts(std::string_view first, const std::set<std::string>& names)
      : mBegin(first), mEnd(first) {
    for (const std::string& name : names) {
      mBegin.resize(std::ranges::mismatch(mBegin, name).in1 - mBegin.begin());
    }
    mBegin.resize(
        mBegin.size() -
        (std::ranges::find_if_not(mBegin | std::views::reverse, IsInWord) - mBegin.rbegin()));
    for (const std::string& name : names) {
      const std::string_view rest = std::string_view(name).substr(mBegin.size());
      const auto differs =
          std::ranges::mismatch(mEnd | std::views::reverse, rest | std::views::reverse);
      mEnd.erase(mEnd.begin(), differs.in1.base());
    }
    mEnd.erase(mEnd.begin(), std::ranges::find_if_not(mEnd, IsInWord));
  }
  static bool IsInWord(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
           static_cast<unsigned char>(c) >= 0x80;
  }
  std::string mBegin;
  std::string mEnd;
};

// The last characters of a text, with a sign for the rest.
std::string EndOf(const std::string& text, std::size_t characters) {
  const std::size_t all = Characters(text);
  return all <= characters + 1 ? text
                               : sEllipsis + text.substr(CharacterOffset(text, all - characters));
}

}  // namespace

std::string Counted(std::uint64_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string Size(std::uint64_t bytes) {
  return bytes < 1024 ? Counted(bytes, "byte") : BytesToAscii(static_cast<std::int64_t>(bytes), 7);
}

std::string ValidUtf8(std::string_view text) {
  std::string valid;
  while (!text.empty()) {
    const std::size_t length = WellFormedLength(text);
    valid += length == 0 ? std::string_view("\xEF\xBF\xBD") : text.substr(0, length);
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return valid;
}

std::string OneLine(std::string_view message) {
  std::string line(message.substr(0, message.find_last_not_of('\n') + 1));
  std::ranges::replace(line, '\n', ' ');
  return Vexa::Printable(line);
}

std::string ReasonOf(const CodeError& error) {
  return error.Reason().empty() ? "see the report on standard error" : OneLine(error.Reason());
}

std::string TimeSpan(double first, double last) {
  const bool isOne = first == last || (std::isnan(first) && std::isnan(last));
  return "t = " + RoundTrip(first) + (isOne ? "" : " ... " + RoundTrip(last));
}

std::string Joined(const std::vector<std::string>& texts, const std::string& between) {
  std::string joined;
  for (const std::string& text : texts) {
    joined += (joined.empty() ? "" : between) + text;
  }
  return joined;
}

std::string ToText(double value, std::chars_format format, int precision) {
  std::array<char, 400> text;  // is enough for any double
  const auto end = std::to_chars(text.begin(), text.end(), value, format, precision);
  return {text.data(), end.ptr};
}

std::size_t Characters(std::string_view text) {
  return text.size() - static_cast<std::size_t>(std::ranges::count_if(text, IsContinuation));
}

std::size_t CharacterOffset(std::string_view text, std::size_t n) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!IsContinuation(text[i]) && n-- == 0) {
      return i;
    }
  }
  return text.size();
}

std::string Shortened(std::string_view given, std::size_t most) {
  std::string text = ValidUtf8(given);
  const std::size_t characters = Characters(text);
  if (characters <= most || most < 4) {
    return text;
  }
  // The end of a name tells more than its beginning.
  const std::size_t tail = (most - 1) * 3 / 5;
  const std::size_t head = most - 1 - tail;
  return text.substr(0, CharacterOffset(text, head)) + sEllipsis +
         text.substr(CharacterOffset(text, characters - tail));
}

std::vector<std::string> ShortenedAlike(const std::vector<std::string>& given, std::size_t most) {
  std::vector<std::string> names;
  std::size_t longest = 0;
  for (const std::string& name : given) {
    names.push_back(ValidUtf8(name));
    longest = std::max(longest, Characters(names.back()));
  }
  const std::set<std::string> different(names.begin(), names.end());
  if (longest <= most || different.size() < 2) {
    std::ranges::transform(names, names.begin(), [most](auto& n) { return Shortened(n, most); });
    return names;
  }
  const CommonParts common(*different.begin(), different);
  const std::size_t differing =
      longest - Characters(common.mBegin) - Characters(common.mEnd) + 2 * Characters(sEllipsis);
  const std::size_t room = most - std::min(most, differing);
  const std::string end = EndOf(common.mEnd, room / 2);
  const std::string begin = EndOf(common.mBegin, room - std::min(room, Characters(end)));
  std::vector<std::string> texts;
  for (const std::string& name : names) {
    const std::size_t middle = name.size() - common.mBegin.size() - common.mEnd.size();
    texts.push_back(Shortened(begin + name.substr(common.mBegin.size(), middle) + end, most));
  }
  if (std::set(texts.begin(), texts.end()).size() < different.size()) {
    for (std::size_t i = 0; i < names.size(); ++i) {
      const std::string number = std::to_string(i + 1) + ": ";
      texts[i] = number + Shortened(names[i], most - std::min(most, number.size()));
    }
  }
  return texts;
}

void AlignedLines::Print(std::ostream& os, const std::string& indent) const {
  std::vector<std::size_t> widths;
  for (const auto& [cells, text] : mLines) {
    widths.resize(std::max(widths.size(), cells.size()));
    for (std::size_t i = 0; i < cells.size(); ++i) {
      widths[i] = std::max(widths[i], Characters(cells[i]));
    }
  }
  for (const auto& [cells, text] : mLines) {
    if (cells.empty()) {
      os << text;
      continue;
    }
    std::string line = indent;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const std::string padding(widths[i] - Characters(cells[i]), ' ');
      const bool isRight = mRightAligned.contains(i);
      // A column that is empty throughout takes no room.
      line += i > 0 && widths[i] > 0 ? "  " : "";
      line += isRight ? padding + cells[i] : cells[i] + padding;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    os << line << '\n';
  }
}
