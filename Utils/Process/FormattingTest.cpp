#include "Utils/Process/Formatting.hpp"

#include <gmock/gmock.h>

#include <limits>

namespace {

TEST(FormattingTest, DoubleToStringDecimal) {
  const struct {
    double mValue;
    int mPrecision;
    const char* mText;
  } cases[] = {{12.345678, 5, "12.346"},
               {0, 5, "0.0000"},
               {0.09765625, 5, "0.0977"},
               {-1.5, 3, "-1.50"},
               {123456, 5, "123456"},
               {99999.4, 5, "99999"},
               // a carry takes its digit from the decimals
               {9.99999, 5, "10.000"},
               {-99.9999, 3, "-100"},
               {99999.9, 5, "100000"},
               {1e22, 5, "10000000000000000000000"},
               // nonsense, but no failure
               {2.5e-300, -1, "0"},
               {1.5, 1000000, nullptr},
               {-std::numeric_limits<double>::infinity(), 5, "-inf"}};
  for (const auto& c : cases) {
    const std::string text = DoubleToStringDecimal(c.mValue, c.mPrecision);
    if (c.mText != nullptr) {
      EXPECT_EQ(text, c.mText);
    } else {
      EXPECT_EQ(std::stod(text), c.mValue);
    }
  }
}

TEST(FormattingTest, BytesToAscii) {
  const struct {
    std::int64_t mBytes;
    const char* mText;
  } cases[] = {{0, "0.0000 KiB"},         {100, "0.0977 KiB"},           {1048575, "1024.0 KiB"},
               {1048576, "1.0000 MiB"},   {1073741823, "1024.0 MiB"},    {1073741824, "1.0000 GiB"},
               {-1048576, "-1.0000 MiB"}, {INT64_MIN, "-8589934592 GiB"}};
  for (const auto& c : cases) {
    EXPECT_EQ(BytesToAscii(c.mBytes, 9), c.mText);
  }
  EXPECT_EQ(BytesToAscii(1536, 6), "1.5 KiB");
}

TEST(FormattingTest, TimeIntervalToAscii) {
  const struct {
    double mSeconds;
    const char* mText;
  } cases[] = {{0, "0.00000 ms"},      {0.25, "250.000 ms"},  {1, "1.0000 sec"},
               {59.5, "59.500 sec"},   {60, "1.0000 min"},    {3600, "1.000000 h"},
               {-7200, "-2.000000 h"}, {172800, "2.0000 day"}};
  for (const auto& c : cases) {
    EXPECT_EQ(TimeIntervalToAscii(c.mSeconds, 9), c.mText);
  }
}

}  // namespace
