#include "Utils/Process/WriteBehind.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

using namespace Vexa;

namespace {

constexpr std::size_t sMega = 1024 * 1024;

TEST(WriteBehind, WritesInTheOrderGivenWhateverTheSizes) {
  std::FILE* const file = std::tmpfile();
  std::string expected(20 * sMega, '\0');
  {
    WriteBehind behind(fileno(file), {});
    for (std::uint64_t i = 0, address = 3; i < 12; ++i) {
      // What is larger than all that is held, what overlaps what was written before, a gap.
      const std::string bytes(i == 5 ? 9 * sMega : 70000 * i + 1, static_cast<char>('a' + i));
      const auto* first = reinterpret_cast<const unsigned char*>(bytes.data());
      EXPECT_TRUE(behind.Write(address, first, bytes.size()));
      expected.replace(address, bytes.size(), bytes);
      address += bytes.size() + (i == 8 ? 5000 : 0) - (i == 3 ? 1000 : 0);
    }
    EXPECT_TRUE(behind.Wait());
  }
  std::string found(expected.size(), '\0');
  EXPECT_GT(pread(fileno(file), found.data(), found.size(), 0), 0);
  EXPECT_TRUE(found == expected);
  std::fclose(file);
}

TEST(WritePace, JudgesByWhatWasWrittenLast) {
  WritePace pace;
  const struct {
    double mMegabytes, mSeconds;
    bool mIsSlow;
  } steps[] = {{10, 0.03, false},  {10, 0.02, true},   {2, 0.001, true},
               {2, 0.02, true},    {20, 0.005, false}, {100, 0.1, false},
               {0.06, 0.04, true}, {16, 0, true},      {1, 0, false}};
  for (const auto& step : steps) {
    pace.Add(static_cast<std::size_t>(step.mMegabytes * 1e6), step.mSeconds);
    EXPECT_EQ(pace.IsSlow(), step.mIsSlow) << step.mMegabytes << " MB in " << step.mSeconds;
  }
}

}  // namespace
