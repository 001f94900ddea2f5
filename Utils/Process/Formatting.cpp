#include "Utils/Process/Formatting.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <ctime>
#include <initializer_list>
#include <limits>
#include <string_view>

namespace {

std::string Fixed(double value, int decimals) {
  // The buffer has room for the longest number, a sign, the point and the decimals.
  constexpr int maxDecimals = 100;
  std::array<char, std::numeric_limits<double>::max_exponent10 + maxDecimals + 4> text;
  const auto end = std::to_chars(text.begin(), text.end(), value, std::chars_format::fixed,
                                 std::min(decimals, maxDecimals));
  return {text.data(), end.ptr};
}

int DigitsBeforePoint(std::string_view number) {
  const std::size_t length = std::min(number.find('.'), number.size());
  return static_cast<int>(length) - (number.front() == '-' ? 1 : 0);
}

struct Unit {
  double mSize;
  std::string_view mName;
};

// Writes the value in the first of the units, which descend, of which it holds at least one. What
// is less than one of each is written in the last.
std::string WithUnit(double value, std::initializer_list<Unit> units, int width) {
  const Unit& unit = *std::find_if(units.begin(), units.end() - 1, [value](const Unit& candidate) {
    return std::abs(value) >= candidate.mSize;
  });
  return DoubleToStringDecimal(value / unit.mSize, width - static_cast<int>(unit.mName.size()))
      .append(unit.mName);
}

}  // namespace

std::string DoubleToStringDecimal(double value, int precision) {
  if (!std::isfinite(value)) {
    return Fixed(value, 0);
  }
  int decimals = std::max(0, precision - DigitsBeforePoint(Fixed(std::trunc(value), 0)));
  const std::string text = Fixed(value, decimals);
  // Rounding can carry into a new digit: 9.99999 becomes 10.0000.
  const int excess = DigitsBeforePoint(text) + decimals - precision;
  return excess > 0 && decimals > 0 ? Fixed(value, decimals - excess) : text;
}

std::string RoundTrip(double value) {
  std::array<char, 32> text;
  const auto end = std::to_chars(text.begin(), text.end(), value);
  return {text.data(), end.ptr};
}

std::string RoundTripWithExponent(double value) {
  std::array<char, 32> text;
  const auto end = std::to_chars(text.begin(), text.end(), value, std::chars_format::scientific);
  return {text.data(), end.ptr};
}

std::string BytesToAscii(std::int64_t bytes, int width) {
  return WithUnit(static_cast<double>(bytes),
                  {{0x1p30, " GiB"}, {0x1p20, " MiB"}, {0x1p10, " KiB"}}, width);
}

std::string TimeIntervalToAscii(double seconds, int width) {
  return WithUnit(seconds,
                  {{86400, " day"}, {3600, " h"}, {60, " min"}, {1, " sec"}, {1e-3, " ms"}}, width);
}

std::string AsciiTime() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  std::array<char, 64> text;
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S %z", &local)};
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
