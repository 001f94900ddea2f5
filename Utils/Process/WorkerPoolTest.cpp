#include "Utils/Process/WorkerPool.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace {

// The number of threads is fixed at its first use, which is here.
class WorkerPoolTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    setenv("VEXA_THREADS", "4", 1);
    ASSERT_EQ(NumberOfThreads(), 4u);
  }
};

TEST_F(WorkerPoolTest, EveryTaskRunsOnceInEveryRound) {
  for (int round = 0; round < 500; ++round) {
    std::vector<std::atomic<int>> runs(static_cast<std::size_t>(round % 17));
    ParallelFor(runs.size(), [&](std::size_t i) { ++runs[i]; });
    for (const std::atomic<int>& count : runs) {
      ASSERT_EQ(count, 1);
    }
  }
}

TEST_F(WorkerPoolTest, AFailureIsThrownOnAfterAllHaveEnded) {
  std::atomic<int> ended = 0;
  const auto work = [&] {
    ParallelFor(100, [&](std::size_t i) {
      ++ended;
      if (i == 50) {
        throw std::runtime_error("task 50");
      }
    });
  };
  EXPECT_THROW(work(), std::runtime_error);
  EXPECT_EQ(ended, 100);
  ParallelFor(10, [&](std::size_t) { ++ended; });
  EXPECT_EQ(ended, 110);
}

}  // namespace
