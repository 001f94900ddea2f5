#include "Utils/ErrorHandling/Signals.hpp"

#include <gtest/gtest.h>

#include <csignal>

#include "Utils/ErrorHandling/TerminationCriteria.hpp"

namespace {

using testing::KilledBySignal;

TEST(SignalsTest, ReportAndDefaultAction) {
  setenv("VEXA_NO_BACKTRACE", "1", 1);
  for (const int signal : {SIGSEGV, SIGFPE, SIGABRT, SIGQUIT}) {
    EXPECT_EXIT(raise(signal), KilledBySignal(signal),
                "^Received signal " + std::to_string(signal) + " \\([A-Z].*\\)\n$");
  }
  const auto divide = [] {
    TerminationCriteria::TerminateOnFloatingPointException();
    volatile double zero = 0;
    zero = zero / zero;
  };
  EXPECT_EXIT(divide(), KilledBySignal(SIGFPE), "Received signal 8");
  setenv("VEXA_NO_BACKTRACE", "", 1);
  // The test needs a new process, for a failed REQUIRE may have used up the one backtrace of this.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::abort(), KilledBySignal(SIGABRT),
              "^Received signal 6 \\(Aborted\\)\n.* abort \\+ 0x.*\n");
}

}  // namespace
