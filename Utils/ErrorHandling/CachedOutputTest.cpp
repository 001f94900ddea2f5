#include "Utils/ErrorHandling/CachedOutput.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <memory>

#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/TestSupport/TestOutput.hpp"

namespace {

using testing::ExitedWithCode;

struct Output : CachedOutputObject {
  explicit Output(std::function<void()> write) : mWrite(std::move(write)) {}
  void WriteCache() const override { mWrite(); }
  std::function<void()> mWrite;
};

TEST(CachedOutputTest, WhatIsAliveIsWrittenWhateverFails) {
  std::string written;
  const Output good([&] { written += "good;"; });
  {
    std::unique_ptr<Output> gone;
    const Output bad([&] {
      gone.reset();
      throw std::runtime_error("first");
    });
    gone = std::make_unique<Output>([&] { written += "gone;"; });
    const Output worse([] { throw std::runtime_error("second"); });
    const Output last([&] { written += "last;"; });
    EXPECT_THAT(CachedOutput::FlushCachedOutput,
                testing::ThrowsMessage<std::runtime_error>("first"));
    EXPECT_EQ(written, "good;last;");
  }
  CachedOutput::FlushCachedOutput();
  EXPECT_EQ(written, "good;last;good;");
}

TEST(CachedOutputTest, SignalsAreServedAtTheNextSafePointOnce) {
  // What is written comes to a safe point itself, where no flush may begin inside the other.
  const Output nested([] {
    std::cerr << (CachedOutput::IsEndingBySignal() ? "last;" : "written;");
    CachedOutput::FlushIfRequested();
  });
  EXPECT_EXIT(raise(SIGTERM), testing::KilledBySignal(SIGTERM), "^$");
  const auto run = [] {
    CachedOutput::FlushAndEndOnSIGTERM();
    CachedOutput::FlushIfRequested();
    raise(SIGUSR2);
    std::cerr << "asked;";
    CachedOutput::FlushIfRequested();
    CachedOutput::FlushIfRequested();
    raise(SIGTERM);
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    CachedOutput::FlushIfRequested();
  };
  EXPECT_EXIT(run(), testing::KilledBySignal(SIGTERM), "^asked;written;last;$");
}

TEST(MyAbortTest, WritesOutputThenRunsExitHandlers) {
  const ToldOutput output;
  const auto abortWithHandler = [] {
    std::atexit([] { std::cerr << (MyAbortCalled_UncleanShutdown() ? "unclean" : "clean"); });
    MyAbort();
  };
  EXPECT_EXIT(abortWithHandler(), ExitedWithCode(255), "^written;unclean$");
  MyAbort_ChangeSleepSeconds(0);
  const FakeRuntime runtime(1);
  EXPECT_EXIT(MyAbort(), ExitedWithCode(3), "^others asked;written;job aborted with -1$");
}

}  // namespace
