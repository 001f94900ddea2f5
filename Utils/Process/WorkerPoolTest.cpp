#include "Utils/Process/WorkerPool.hpp"

#include <gtest/gtest.h>
#include <sched.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <latch>
#include <new>
#include <stdexcept>
#include <thread>
#include <utility>

#include "Utils/Process/TestSupport/FailingNew.hpp"

namespace {

// The number of threads is fixed at its first use. Death tests come first, and use it in a process
// of their own.
[[maybe_unused]] const int sSet = setenv("VEXA_THREADS", "4", 1);

TEST(WorkerPoolDeathTest, ThreadsAreAsManyAsToldElseAsProcessors) {
  const auto run = [](const char* told) {
    setenv("VEXA_THREADS", told, 1);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    sched_setaffinity(0, sizeof one, &one);
    bool hasRun = false;
    Vexa::TaskGroup group;
    group.Add([&hasRun] { hasRun = true; });
    std::exit(hasRun || Vexa::NumberOfThreads() > 1
                  ? static_cast<int>(Vexa::NumberOfThreads() % 255)
                  : 254);
  };
  for (const auto& [told, threads] : {std::pair{"3", 3}, {"0", 1}, {"3x", 1}, {"300", 1}}) {
    EXPECT_EXIT(run(told), testing::ExitedWithCode(threads), "") << told;
  }
}

TEST(WorkerPoolDeathTest, StartsWithWhatMemoryAllows) {
  const auto run = [] {
    Vexa::TaskGroup group;
    std::atomic<int> ended = 0;
    int added = 0;
    for (int allocations = 0; added < 100; ++allocations) {
      sAllocationsLeft = added == 0 ? allocations : -1;
      try {
        group.Add([&ended] { ++ended; });
        ++added;
      } catch (const std::bad_alloc&) {
      }
      sAllocationsLeft = -1;
    }
    group.Wait();
    std::exit(ended - 100);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST(WorkerPoolTest, AGroupEndsWithItsOwnTasksAndThrowsTheirFailureOnOnce) {
  std::atomic<int> others = 0;
  for (int round = 0; round < 200; ++round) {
    ASSERT_EQ(others, 20 * round) << "though nobody waited";
    std::atomic<int> ended = 0;
    Vexa::TaskGroup notWaitedFor;
    Vexa::TaskGroup group;
    for (int i = 0; i < 20; ++i) {
      notWaitedFor.Add([&others] { ++others; });
      group.Add([&ended] { ++ended == 3 ? throw std::runtime_error("a task") : 0; });
    }
    ASSERT_THROW(group.Wait(), std::runtime_error);
    ASSERT_EQ(ended, 20);
    group.Wait();
  }
}

// One of the two tasks runs on a worker, and ends when there is nothing to do here but to wait.
TEST(WorkerPoolTest, ATaskThatEndsLateIsWaitedFor) {
  std::latch begun(2);
  Vexa::TaskGroup group;
  for (int i = 0; i < 2; ++i) {
    group.Add([&begun, here = std::this_thread::get_id(), start = std::clock()] {
      begun.arrive_and_wait();
      while (std::this_thread::get_id() != here && std::clock() - start < CLOCKS_PER_SEC / 20) {
      }
    });
  }
  group.Wait();
}

}  // namespace
