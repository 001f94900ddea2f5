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
  setenv("VEXA_NO_BACKTRACE", "1", 1);
  EXPECT_EXIT(raise(SIGSEGV), KilledBySignal(SIGSEGV),
              "^Received signal 11 \\(Segmentation fault\\)\n$");
  for (const int signal : {SIGFPE, SIGABRT, SIGQUIT}) {
    EXPECT_EXIT(raise(signal), KilledBySignal(signal), "^Received signal [368] \\(.*\\)\n$");
  }
  setenv("VEXA_NO_BACKTRACE", "", 1);
  // A new process, for in this one a failed REQUIRE may have used up the one backtrace.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::abort(), KilledBySignal(SIGABRT),
              "^Received signal 6 \\(Aborted\\)\n.* abort \\+ 0x.*\n");
}

TEST(SignalsTest, CrashOfTheReportEndsTheProcess) {
  struct Crashing : std::streambuf {
    std::streamsize xsputn(const char*, std::streamsize) override { return raise(SIGSEGV); }
  };
  Crashing crashing;
  EXPECT_EXIT((std::cerr.rdbuf(&crashing), raise(SIGQUIT)), KilledBySignal(SIGSEGV), "^$");
}

TEST(SignalsTest, FloatingPointTraps) {
  const auto divide = [](double dividend, double divisor) {
    TerminationCriteria::TerminateOnFloatingPointException();
    volatile double result = dividend;
    result = result / divisor;
  };
  for (const auto& [dividend, divisor] : {std::pair(1.0, 0.0), {0.0, 0.0}, {1e300, 1e-300}}) {
    EXPECT_EXIT(divide(dividend, divisor), KilledBySignal(SIGFPE), "Received signal 8");
  }
}

TEST(SignalsTest, FileSizeLimitIsAnErrorOfTheWrite) {
  const auto writeBeyondLimit = [] {
    IgnoreFileSizeSignal();
    const rlimit limit{0, 0};
    setrlimit(RLIMIT_FSIZE, &limit);
    std::FILE* file = std::tmpfile();
    std::exit(write(fileno(file), "x", 1) < 0 && errno == EFBIG ? 0 : 1);
  };
  EXPECT_EXIT(writeBeyondLimit(), testing::ExitedWithCode(0), "");
}

}  // namespace
