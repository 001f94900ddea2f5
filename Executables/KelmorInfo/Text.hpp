// Numbers, names and tables as text for people.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Utils/Process/Formatting.hpp"
#include "Utils/Process/Printable.hpp"

class CodeError;

/// "1 step", "2 steps".
std::string Counted(std::uint64_t count, const std::string& noun);

/// A number of bytes in a handy unit.
std::string Size(std::uint64_t bytes);

/// With bytes that are no UTF-8 replaced by U+FFFD.
std::string ValidUtf8(std::string_view text);

/// A message of several lines as one.
std::string OneLine(std::string_view message);

/// What a failure says, on one line.
std::string ReasonOf(const CodeError& error);

/// "t = 1 ... 2", or "t = 1" if both are the same.
std::string TimeSpan(double first, double last);

/// The texts one after the other, with `between` between them.
std::string Joined(const std::vector<std::string>& texts, const std::string& between);

/// A number with so many digits, as std::to_chars counts them.
std::string ToText(double value, std::chars_format format, int precision);

/// Characters of a UTF-8 text, and the byte at which the n-th begins.
std::size_t Characters(std::string_view text);
std::size_t CharacterOffset(std::string_view text, std::size_t n);

/// The text, with its middle left out if it has more characters than `most`.
std::string Shortened(std::string_view text, std::size_t most);

/// Names with at most so many characters each, which stay different if they are: what all of them
/// begin or end with is left out first.
std::vector<std::string> ShortenedAlike(const std::vector<std::string>& names, std::size_t most);

/// Lines whose cells stand under each other, two blanks apart.
class AlignedLines {
 public:
  /// `rightAligned` numbers the columns of numbers.
  explicit AlignedLines(std::set<std::size_t> rightAligned)
      : mRightAligned(std::move(rightAligned)) {}
  void Add(std::vector<std::string> cells) { mLines.push_back({std::move(cells), ""}); }
  /// Lines between them, which have no cells; each ends with a newline.
  void AddText(std::string text) { mLines.push_back({{}, std::move(text)}); }
  void Print(std::ostream& os, const std::string& indent) const;

 private:
  struct Line {
    std::vector<std::string> mCells;
    std::string mText;  // if there are no cells
  };
  std::set<std::size_t> mRightAligned;
  std::vector<Line> mLines;
};
