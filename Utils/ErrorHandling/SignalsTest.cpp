#include "Utils/ErrorHandling/Signals.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <streambuf>

#include "Utils/ErrorHandling/TerminationCriteria.hpp"

namespace {

using testing::KilledBySignal;

TEST(SignalsTest, ReportAndDefaultAction) {
  ASSERT_TRUE(signal_backtraces_enabled);
  setenv("VEXA_NO_BACKTRACE", "1", 1);
  const struct {
    int mSignal;
    const char* mReport;
  } cases[] = {{SIGSEGV, "^Received signal 11 \\(Segmentation fault\\)\n$"},
               {SIGFPE, "^Received signal 8 \\(Floating point exception\\)\n$"},
               {SIGABRT, "^Received signal 6 \\(Aborted\\)\n$"},
               {SIGQUIT, "^Received signal 3 \\(Quit\\)\n$"}};
  for (const auto& c : cases) {
    EXPECT_EXIT(raise(c.mSignal), KilledBySignal(c.mSignal), c.mReport);
  }
}

TEST(SignalsTest, ReportHasABacktrace) {
  // A new process, for in this one a failed REQUIRE may have used up the one backtrace.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  setenv("VEXA_NO_BACKTRACE", "", 1);
  EXPECT_EXIT(std::abort(), KilledBySignal(SIGABRT),
              "^Received signal 6 \\(Aborted\\)\n.* abort \\+ 0x.*\n");
}

TEST(SignalsTest, CrashOfTheReportEndsTheProcess) {
  struct Crashing : std::streambuf {
    std::streamsize xsputn(const char*, std::streamsize) override { return raise(SIGSEGV); }
  };
  EXPECT_EXIT(
      {
        Crashing crashing;
        std::cerr.rdbuf(&crashing);
        raise(SIGQUIT);
      },
      KilledBySignal(SIGSEGV), "^$");
}

TEST(SignalsTest, FloatingPointTraps) {
  const auto divide = [](double dividend, double divisor) {
    TerminationCriteria::TerminateOnFloatingPointException();
    volatile double result = dividend;
    result = result / divisor;
  };
  EXPECT_FALSE(TerminationCriteria::TerminateOnFPE);
  EXPECT_EXIT(divide(1.0, 0.0), KilledBySignal(SIGFPE), "Received signal 8");
  EXPECT_EXIT(divide(0.0, 0.0), KilledBySignal(SIGFPE), "Received signal 8");
  EXPECT_EXIT(divide(1e300, 1e-300), KilledBySignal(SIGFPE), "Received signal 8");
}

TEST(SignalsTest, FileSizeLimitIsAnErrorOfTheWrite) {
  const auto writeBeyondLimit = [] {
    IgnoreFileSizeSignal();
    const rlimit limit{0, 0};
    setrlimit(RLIMIT_FSIZE, &limit);
    std::FILE* file = std::tmpfile();
    const bool failed = write(fileno(file), "x", 1) < 0 && errno == EFBIG;
    std::exit(failed ? 0 : 1);
  };
  EXPECT_EXIT(writeBeyondLimit(), testing::ExitedWithCode(0), "");
}

}  // namespace
