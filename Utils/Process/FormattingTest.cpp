#include "Utils/Process/Formatting.hpp"

#include <gmock/gmock.h>

#include <limits>
#include <utility>

namespace {

TEST(FormattingTest, NumbersHaveSoManyDigits) {
  const std::pair<double, const char*> cases[] = {
      {12.345678, "12.346"},
      {0, "0.0000"},
      {0.09765625, "0.0977"},
      {-1.5, "-1.5000"},
      {99999.4, "99999"},
      // a carry takes its digit from the decimals
      {9.99999, "10.000"},
      {99999.9, "100000"},
      {1e22, "10000000000000000000000"},
      {-std::numeric_limits<double>::infinity(), "-inf"}};
  for (const auto& [value, text] : cases) {
    EXPECT_EQ(DoubleToStringDecimal(value, 5), text);
  }
  EXPECT_EQ(std::stod(DoubleToStringDecimal(1.5, 1000000)), 1.5) << "nonsense, but no failure";
}

TEST(FormattingTest, UnitsFollowTheSize) {
  const std::pair<std::int64_t, const char*> sizes[] = {
      {100, "0.0977 KiB"},           {1048575, "1024.0 KiB"},    {1048576, "1.0000 MiB"},
      {1073741823, "1024.0 MiB"},    {1073741824, "1.0000 GiB"}, {-1048576, "-1.0000 MiB"},
      {INT64_MIN, "-8589934592 GiB"}};
  for (const auto& [bytes, text] : sizes) {
    EXPECT_EQ(BytesToAscii(bytes, 9), text);
  }
  const std::pair<double, const char*> times[] = {{0.25, "250.000 ms"},   {1, "1.0000 sec"},
                                                  {60, "1.0000 min"},     {3600, "1.000000 h"},
                                                  {-7200, "-2.000000 h"}, {172800, "2.0000 day"}};
  for (const auto& [seconds, text] : times) {
    EXPECT_EQ(TimeIntervalToAscii(seconds, 9), text);
  }
}

}  // namespace
