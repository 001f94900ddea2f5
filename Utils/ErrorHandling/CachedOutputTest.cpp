#include "Utils/ErrorHandling/CachedOutput.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <iostream>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

using Log = std::vector<std::string>;

struct Output : CachedOutputObject {
  Output(Log& log, const std::string& name) : mLog(log), mName(name) {}
  void WriteCache() const override {
    mLog.push_back(mName);
    if (mName.starts_with("bad")) {
      throw std::runtime_error(mName);
    }
  }
  Log& mLog;
  std::string mName;
};

TEST(CachedOutputTest, WhatIsAliveIsWrittenWhateverFails) {
  Log log;
  const Output good(log, "good");
  {
    const Output bad(log, "bad");
    const Output bad2(log, "bad2");
    const Output good2(log, "good2");
    EXPECT_THAT(CachedOutput::FlushCachedOutput, ThrowsMessage<std::runtime_error>("bad"));
    EXPECT_THAT(log, ElementsAre("good", "bad", "bad2", "good2"));
  }
  log.clear();
  CachedOutput::FlushCachedOutput();
  EXPECT_THAT(log, ElementsAre("good"));
}

TEST(CachedOutputTest, SignalIsServedAtTheNextSafePointOnce) {
  Log log;
  const Output output(log, "x");
  CachedOutput::FlushIfRequested();
  raise(SIGUSR2);
  EXPECT_THAT(log, IsEmpty());
  CachedOutput::FlushIfRequested();
  CachedOutput::FlushIfRequested();
  EXPECT_THAT(log, ElementsAre("x"));
}

TEST(CachedOutputTest, SIGTERMEndsAtTheNextSafePoint) {
  // A flush of its own could come to a safe point again.
  struct Nested : CachedOutputObject {
    void WriteCache() const override {
      std::cerr << (CachedOutput::IsEndingBySignal() ? "last;" : "written;");
      CachedOutput::FlushIfRequested();
    }
  };
  const Nested output;
  EXPECT_EXIT(raise(SIGTERM), testing::KilledBySignal(SIGTERM), "^$");
  const auto run = [] {
    CachedOutput::FlushAndEndOnSIGTERM();
    raise(SIGUSR2);
    CachedOutput::FlushIfRequested();
    raise(SIGTERM);
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    CachedOutput::FlushIfRequested();
  };
  EXPECT_EXIT(run(), testing::KilledBySignal(SIGTERM), "^written;last;$");
}

}  // namespace
