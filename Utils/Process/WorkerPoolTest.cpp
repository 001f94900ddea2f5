#include "Utils/Process/WorkerPool.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <vector>

#include "Utils/Process/FailingNew.hpp"

namespace {

// The number of threads is fixed at its first use, which is here.
class WorkerPoolTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    setenv("VEXA_THREADS", "4", 1);
    ASSERT_EQ(NumberOfThreads(), 4u);
  }
};

// Before others start the workers. A thread that has begun cannot be waited for.
TEST_F(WorkerPoolTest, StartsWithWhatMemoryAllows) {
  TaskGroup group;
  bool isAdded = false;
  std::atomic<int> ended = 0;
  for (int allocations = 0; !isAdded; ++allocations) {
    sAllocationsLeft = allocations;
    try {
      group.Add([&ended] { ++ended; });
      isAdded = true;
    } catch (const std::bad_alloc&) {
    }
    sAllocationsLeft = -1;
  }
  for (int i = 0; i < 100; ++i) {
    group.Add([&ended] { ++ended; });
  }
  group.Wait();
  EXPECT_EQ(ended, 101);
}

TEST_F(WorkerPoolTest, EveryTaskRunsOnceInEveryGroup) {
  for (int round = 0; round < 500; ++round) {
    std::vector<std::atomic<int>> runs(static_cast<std::size_t>(round % 17));
    TaskGroup odd;
    TaskGroup even;
    for (std::size_t i = 0; i < runs.size(); ++i) {
      (i % 2 == 0 ? even : odd).Add([&runs, i] { ++runs[i]; });
    }
    odd.Wait();
    for (std::size_t i = 1; i < runs.size(); i += 2) {
      ASSERT_EQ(runs[i], 1);
    }
    even.Wait();
    for (const std::atomic<int>& count : runs) {
      ASSERT_EQ(count, 1);
    }
  }
}

TEST_F(WorkerPoolTest, AGroupEndsWithItsTasksAndThrowsTheirFailureOnOnce) {
  std::atomic<int> ended = 0;
  const auto task = [&ended] {
    if (++ended % 20 == 3) {
      throw std::runtime_error("a task");
    }
  };
  for (int round = 0; round < 100; ++round) {
    ended = 0;
    {
      TaskGroup group;
      for (int i = 0; i < 20; ++i) {
        group.Add(task);
      }
    }
    ASSERT_EQ(ended, 20) << "though nobody waited";
  }
  TaskGroup failing;
  for (int i = 0; i < 20; ++i) {
    failing.Add(task);
  }
  EXPECT_THROW(failing.Wait(), std::runtime_error);
  EXPECT_EQ(ended, 40);
  failing.Add([&ended] { ++ended; });
  failing.Wait();
  EXPECT_EQ(ended, 41);
}

}  // namespace
