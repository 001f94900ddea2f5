#include "Utils/Process/Formatting.hpp"

#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "Utils/Process/Printable.hpp"

namespace {

template <class Value>
std::string Texts(std::string (*format)(Value, int), int width, const std::vector<Value>& values) {
  std::string texts;
  for (const Value value : values) {
    texts += format(value, width) + "|";
  }
  return texts;
}

// In the numbers, a digit that is carried takes one of the decimals.
TEST(FormattingTest, NumbersSizesAndTimes) {
  EXPECT_EQ(
      Texts(DoubleToStringDecimal, 5,
            {12.345678, 0, 0.09765625, -1.5, 9.6, 99999.4, 9.99999, 99999.9, 1e22, -HUGE_VAL}),
      "12.346|0.0000|0.0977|-1.5000|9.6000|99999|10.000|100000|10000000000000000000000|-inf|");
  EXPECT_EQ(std::stod(DoubleToStringDecimal(1.5, 1000000)), 1.5) << "nonsense, but no failure";
  EXPECT_EQ(
      Texts(BytesToAscii, 9, {100, 1048575, 1048576, 1073741823, 1073741824, -1048576, INT64_MIN}),
      "0.0977 KiB|1024.0 KiB|1.0000 MiB|1024.0 MiB|1.0000 GiB|-1.0000 MiB|-8589934592 GiB|");
  EXPECT_EQ(Texts(TimeIntervalToAscii, 9, {0.25, 1, 60, 3600, -7200, 43200, 86400}),
            "250.000 ms|1.0000 sec|1.0000 min|1.000000 h|-2.000000 h|12.00000 h|1.0000 day|");
  EXPECT_EQ(RoundTrip(0.1) + RoundTripWithExponent(0.5), "0.15e-01");
  setenv("TZ", "ABC-01:30", 1);
  tzset();
  EXPECT_THAT(AsciiTime(), testing::MatchesRegex("....-..-.. ..:..:.. [+]0130"));
}

TEST(FormattingTest, WordsOfAShellAndOfATerminal) {
  EXPECT_EQ(Quoted("run/a-1.h5") + Quoted("it's $H") + Quoted(""), "run/a-1.h5'it'\\''s $H'''");
  const std::string shown = "größe \xE4\xB8\xAD \xC2\xA0 \xF0\x9F\x98\x80~ ";
  EXPECT_EQ(Vexa::Printable(shown + "a\nb\tc\x1b[K\x7F \xC2\x9F"),
            shown + "a\\nb\\tc\\x1b[K\\x7f \\x9f");
  EXPECT_EQ(Vexa::Printable("a\n\tb\r", Vexa::Breaks::Kept), "a\n\tb\\x0d");
  EXPECT_EQ(Vexa::Printable(std::string_view("\xE4\xB8\xAD", 2)), "\\xe4\\xb8") << "cut short";
  // Longer than need be, half a surrogate, past the last character.
  EXPECT_EQ(Vexa::Printable("\xC1\xBF\xE0\x9F\xBF\xED\xA0\x80\xF5\x80\x80\x80\xF4\x90\x80\x80"),
            R"(\xc1\xbf\xe0\x9f\xbf\xed\xa0\x80\xf5\x80\x80\x80\xf4\x90\x80\x80)");
}

}  // namespace
