#include "Utils/ErrorHandling/Backtrace.hpp"

#include <gmock/gmock.h>

#include <cstdlib>
#include <iostream>

// Not in an anonymous namespace: the dynamic linker knows exported functions only.
void InnerFrame(int skipFrames);
void OuterFrame(int skipFrames);

// Both print after the call, or it would be a tail call that leaves no frame.
[[gnu::noinline]] void InnerFrame(int skipFrames) {
  std::cerr << "<" << Backtrace(skipFrames) << Backtrace(skipFrames);
  std::cerr << ">";
}

[[gnu::noinline]] void OuterFrame(int skipFrames) {
  InnerFrame(skipFrames);
  std::cerr << std::flush;
}

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::Not;

// Each backtrace is made by a new process, for there is one per process.
class BacktraceTest : public testing::Test {
 protected:
  BacktraceTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

void PrintAndExit(const char* environment, int skipFrames) {
  setenv("VEXA_NO_BACKTRACE", environment, 1);
  OuterFrame(skipFrames);
  std::exit(0);
}

const char sTwoFrames[] =
    "<[^ ]*ErrorHandlingTest  InnerFrame\\(int\\) \\+ 0x[0-9a-f]+\n"
    "[^ ]*ErrorHandlingTest  OuterFrame\\(int\\) \\+ 0x[0-9a-f]+\n";

TEST_F(BacktraceTest, InnermostFrameFirst) {
  EXPECT_EXIT(PrintAndExit("", 0), ExitedWithCode(0), sTwoFrames);
  EXPECT_EXIT(
      PrintAndExit("", 1), ExitedWithCode(0),
      AllOf(ContainsRegex("<[^ ]*ErrorHandlingTest  OuterFrame"), Not(HasSubstr("InnerFrame"))));
  EXPECT_EXIT(PrintAndExit("", 1000), ExitedWithCode(0), "<>");
}

TEST_F(BacktraceTest, EnvironmentSuppressesBoth) {
  EXPECT_EXIT(PrintAndExit("1", 0), ExitedWithCode(0), "<>");
  const auto print = [](const char* environment) {
    setenv("VEXA_NO_BACKTRACE", environment, 1);
    std::cerr << "<";
    PrintSimpleBacktrace(0);
    PrintSimpleBacktrace(0);
    std::cerr << ">";
    std::exit(0);
  };
  EXPECT_EXIT(print("1"), ExitedWithCode(0), "<>");
  EXPECT_EXIT(print(""), ExitedWithCode(0), "<[^ ]*ErrorHandlingTest.*\\[0x[0-9a-f]+\\]\n");
}

}  // namespace
