#include "Utils/ErrorHandling/MyAbort.hpp"

#include <gtest/gtest.h>

#include <cstdlib>

#include "Utils/ErrorHandling/TestOutput.hpp"

namespace {

using testing::ExitedWithCode;

TEST(MyAbortTest, WritesOutputThenRunsExitHandlers) {
  const ToldOutput output;
  EXPECT_FALSE(MyAbortCalled_UncleanShutdown());
  const auto abortWithHandler = [] {
    std::atexit([] { std::cerr << (MyAbortCalled_UncleanShutdown() ? "unclean" : "clean"); });
    MyAbort();
  };
  EXPECT_EXIT(abortWithHandler(), ExitedWithCode(255), "^written;unclean$");
}

TEST(MyAbortTest, SecondCallEndsAtOnce) {
  struct AbortingOutput : CachedOutputObject {
    void WriteCache() const override { MyAbort(); }
  };
  const AbortingOutput aborting;
  const ToldOutput notReached;
  EXPECT_EXIT(MyAbort(), ExitedWithCode(255), "^Made a recursive call to MyAbort. Exiting now.\n$");
}

TEST(MyAbortTest, ParallelJob) {
  const ToldOutput output;
  MyAbort_ChangeSleepSeconds(0);
  const FakeRuntime runtime(1);
  EXPECT_EXIT(MyAbort(), ExitedWithCode(3), "^others asked;written;job aborted with -1$");
}

}  // namespace
