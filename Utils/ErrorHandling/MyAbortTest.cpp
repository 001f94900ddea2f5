#include "Utils/ErrorHandling/MyAbort.hpp"

#include <gtest/gtest.h>

#include <cstdlib>

#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/TestOutput.hpp"

namespace {

using testing::ExitedWithCode;

struct AbortingOutput : ToldOutput {
  void WriteCache() const override {
    ToldOutput::WriteCache();
    MyAbort();
  }
};

struct FailingOutput : CachedOutputObject {
  void WriteCache() const override { throw CodeError("disk full;", false); }
};

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
  const AbortingOutput aborting;
  const ToldOutput notReached;
  EXPECT_EXIT(MyAbort(), ExitedWithCode(255),
              "^written;Made a recursive call to MyAbort. Exiting now.\n$");
}

TEST(MyAbortTest, FailureToWriteIsReportedAfterTheOthersHaveWritten) {
  const FailingOutput failing;
  const ToldOutput output;
  EXPECT_EXIT(MyAbort(), ExitedWithCode(255),
              "^written;disk full;Made a recursive call to MyAbort. Exiting now.\n$");
}

TEST(MyAbortTest, ParallelJob) {
  const ToldOutput output;
  MyAbort_ChangeSleepSeconds(0);
  const FakeRuntime runtime(1, 2);
  EXPECT_EXIT(MyAbort(), ExitedWithCode(3), "^others asked;written;job aborted with -1$");
}

}  // namespace
