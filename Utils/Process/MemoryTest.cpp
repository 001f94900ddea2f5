#include "Utils/Process/Memory.hpp"

#include <gmock/gmock.h>
#include <sys/prctl.h>

#include <array>
#include <vector>

namespace {

// All in bytes: a slip of the unit is a factor of 1024 or 4096.
TEST(MemoryTest, SizesAreThoseOfThisProcessAndMachine) {
  constexpr std::uint64_t size = 64 << 20;
  const std::uint64_t before = GetCurrentRSS();
  const std::vector<char> touched(size, 'x');
  const std::uint64_t now = GetCurrentRSS();
  EXPECT_TRUE(now >= before + size / 2 && now <= before + 2 * size) << before << " then " << now;
  EXPECT_TRUE(GetPeakRSS() >= size && GetPeakRSS() < 2 * now) << GetPeakRSS();

  prctl(PR_SET_NAME, "a) R 1 (b");
  auto [virtualBytes, residentBytes] = std::array<std::uint64_t, 2>{};
  GetMemoryUsageBytes(virtualBytes, residentBytes);
  EXPECT_TRUE(residentBytes > now / 2 && residentBytes < now * 2) << residentBytes;
  EXPECT_GE(virtualBytes, residentBytes);
  EXPECT_THAT(MemoryUsage(), testing::MatchesRegex("[0-9.]+ .iB vm, [0-9.]+ MiB res"));
}

}  // namespace
