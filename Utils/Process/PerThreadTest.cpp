#include "Utils/Process/PerThread.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <thread>

namespace {

std::atomic<int> sAlive = 0;
std::atomic<bool> sIsMemoryShort = false;

struct Counted {
  Counted() { sIsMemoryShort ? throw std::bad_alloc() : ++sAlive; }
  ~Counted() { --sAlive; }
  int mValue = 0;
};

TEST(PerThreadTest, EachThreadKeepsItsOwnUntilItEnds) {
  PerThread<Counted>().mValue = 7;
  std::jthread([] {
    sIsMemoryShort = true;
    EXPECT_THROW(PerThread<Counted>(), std::bad_alloc);
    sIsMemoryShort = false;
    EXPECT_EQ(PerThread<Counted>().mValue++, 0);
    EXPECT_EQ(PerThread<Counted>().mValue, 1);
    EXPECT_EQ(sAlive, 2);
  }).join();
  EXPECT_EQ(sAlive, 1);
  EXPECT_EQ(PerThread<Counted>().mValue, 7);
}

}  // namespace
