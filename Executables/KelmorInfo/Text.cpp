#include "Executables/KelmorInfo/Text.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <ostream>

#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/Process/Formatting.hpp"
#include "Utils/StringParsing/Utf8.hpp"

namespace {

bool IsContinuation(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

}  // namespace

std::string RoundTrip(double value) {
  std::array<char, 32> text;
  const auto end = std::to_chars(text.begin(), text.end(), value);
  return {text.data(), end.ptr};
}

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

std::string Printable(std::string_view text) {
  const std::string valid = ValidUtf8(text);
  std::string printable;
  for (std::size_t i = 0; i < valid.size(); ++i) {
    // The control characters from U+0080 to U+009F follow this byte.
    const bool isUpperControl =
        valid[i] == '\xC2' && static_cast<unsigned char>(valid[i + 1]) < 0xA0;
    i += isUpperControl ? 1 : 0;
    const auto byte = static_cast<unsigned char>(valid[i]);
    if (valid[i] == '\n') {
      printable += "\\n";
    } else if (valid[i] == '\t') {
      printable += "\\t";
    } else if (isUpperControl || byte < 0x20 || byte == 0x7F) {
      constexpr std::string_view digits = "0123456789abcdef";
      printable.append("\\x").append(1, digits[byte >> 4U]).append(1, digits[byte & 15U]);
    } else {
      printable += valid[i];
    }
  }
  return printable;
}

std::string OneLine(std::string_view message) {
  while (message.ends_with('\n')) {
    message.remove_suffix(1);
  }
  std::string line(message);
  std::replace(line.begin(), line.end(), '\n', ' ');
  return Printable(line);
}

std::string ReasonOf(const CodeError& error) {
  return error.Reason().empty() ? "see the report on standard error" : OneLine(error.Reason());
}

std::string Quoted(const std::string& word) {
  const std::string plain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_@%+=:,./-";
  if (!word.empty() && word.find_first_not_of(plain) == std::string::npos) {
    return word;
  }
  std::string quoted = "'";
  for (const char c : word) {
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return quoted + "'";
}

std::size_t Characters(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return !IsContinuation(c); }));
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
      const bool isRight =
          std::find(mRightAligned.begin(), mRightAligned.end(), i) != mRightAligned.end();
      // A column that is empty throughout takes no room.
      line += i > 0 && widths[i] > 0 ? "  " : "";
      line += isRight ? padding + cells[i] : cells[i] + padding;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    os << line << '\n';
  }
}
