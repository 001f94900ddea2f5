#include "Utils/ErrorHandling/CachedOutput.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <string>
#include <vector>

#include "Utils/ErrorHandling/TestOutput.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Log = std::vector<std::string>;

class Output : public CachedOutputObject {
 public:
  Output(Log& log, const std::string& name) : mLog(log), mName(name) {}
  void WriteCache() const override {
    mLog.push_back(mName);
    if (mName.starts_with("bad")) {
      throw mName;
    }
  }

 private:
  Log& mLog;
  std::string mName;
};

TEST(CachedOutputTest, WritesWhatIsAlive) {
  Log log;
  const Output first(log, "first");
  {
    const Output second(log, "second");
    CachedOutput::FlushCachedOutput();
    EXPECT_THAT(log, ElementsAre("first", "second"));
  }
  log.clear();
  CachedOutput::FlushCachedOutput();
  EXPECT_THAT(log, ElementsAre("first"));
}

TEST(CachedOutputTest, FailureKeepsNobodyFromWriting) {
  Log log;
  const Output bad(log, "bad");
  const Output bad2(log, "bad2");
  const Output good(log, "good");
  try {
    CachedOutput::FlushCachedOutput();
    ADD_FAILURE() << "the failure was swallowed";
  } catch (const std::string& thrown) {
    EXPECT_EQ(thrown, "bad");
  }
  EXPECT_THAT(log, ElementsAre("bad", "bad2", "good"));
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

}  // namespace
