#include "Utils/Process/Memory.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace {

// All in bytes: a slip of the unit is a factor of 1024 or 4096.
TEST(MemoryTest, SizesAreThoseOfThisProcessAndMachine) {
  constexpr std::uint64_t size = 64 << 20;
  const std::uint64_t before = GetCurrentRSS();
  const std::vector<char> touched(size, 'x');
  const std::uint64_t now = GetCurrentRSS();
  EXPECT_GE(now, before + size / 2);
  EXPECT_LE(now, before + 2 * size);
  EXPECT_GE(GetPeakRSS(), size);

  std::uint64_t virtualBytes = 0;
  std::uint64_t residentBytes = 0;
  GetMemoryUsageBytes(virtualBytes, residentBytes);
  EXPECT_GT(residentBytes, now / 2);
  EXPECT_LT(residentBytes, now * 2);
  EXPECT_GE(virtualBytes, residentBytes);

  std::uint64_t total = 0;
  std::uint64_t available = 0;
  std::uint64_t committed = 0;
  std::uint64_t commitLimit = 0;
  GetSystemMemoryBytes(total, available, committed, commitLimit);
  EXPECT_GT(total, GetPeakRSS());
  EXPECT_GT(available, total / 1000) << "free memory alone, or kilobytes";
  EXPECT_LE(available, total);
}

}  // namespace
