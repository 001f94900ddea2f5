#include "Utils/Process/Formatting.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <ctime>
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

std::string WithUnit(double value, std::string_view unit, int width) {
  return DoubleToStringDecimal(value, width - static_cast<int>(unit.size())).append(unit);
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
  const auto value = static_cast<double>(bytes);
  const double magnitude = std::abs(value);
  if (magnitude < 0x1p20) {
    return WithUnit(value / 0x1p10, " KiB", width);
  }
  if (magnitude < 0x1p30) {
    return WithUnit(value / 0x1p20, " MiB", width);
  }
  return WithUnit(value / 0x1p30, " GiB", width);
}

std::string TimeIntervalToAscii(double seconds, int width) {
  struct Unit {
    double mSeconds;
    std::string_view mName;
  };
  constexpr Unit units[] = {{86400, " day"}, {3600, " h"}, {60, " min"}, {1, " sec"}};
  for (const Unit& unit : units) {
    if (std::abs(seconds) >= unit.mSeconds) {
      return WithUnit(seconds / unit.mSeconds, unit.mName, width);
    }
  }
  return WithUnit(seconds * 1e3, " ms", width);
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
