#include "Executables/KelmorInfo/Text.hpp"

#include <algorithm>
#include <array>
#include <ostream>

#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/Process/Formatting.hpp"
#include "Utils/Process/Utf8.hpp"

namespace {

bool IsContinuation(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
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
  return "t = " + RoundTrip(first) + (first == last ? "" : " ... " + RoundTrip(last));
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
