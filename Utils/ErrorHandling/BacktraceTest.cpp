#include "Utils/ErrorHandling/Backtrace.hpp"

#include <gmock/gmock.h>

#include <cstdlib>
#include <iostream>

// Not in an anonymous namespace: the dynamic linker knows exported functions only.
void InnerFrame(int skipFrames);
void OuterFrame(const char* environment, int skipFrames);

// Both print after the call, or it would be a tail call that leaves no frame.
[[gnu::noinline]] void InnerFrame(int skipFrames) {
  std::cerr << "<" << Backtrace(skipFrames) << Backtrace(skipFrames) << "|";
  PrintSimpleBacktrace(0);
  PrintSimpleBacktrace(0);
  std::cerr << ">";
}

[[gnu::noinline]] void OuterFrame(const char* environment, int skipFrames) {
  setenv("VEXA_NO_BACKTRACE", environment, 1);
  InnerFrame(skipFrames);
  std::exit(0);
}

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::Not;

TEST(BacktraceTest, OnceInnermostFrameFirst) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a new process each, for there is one a process
  EXPECT_EXIT(OuterFrame("", 0), ExitedWithCode(0),
              "<[^ ]*ErrorHandlingTest +InnerFrame\\(int\\) \\+ 0x[0-9a-f]+\n"
              "[^ ]*ErrorHandlingTest +OuterFrame\\(char const\\*, int\\) \\+ 0x[0-9a-f]+\n"
              ".*0x0 \\+ 0x.*\n[^ ]+libc[^ ]* +is loaded at 0x[0-9a-f]+000\n"
              ".*\\|[^ ]*ErrorHandlingTest[^ ]* ?\\[0x[0-9a-f]+\\]\n");
  EXPECT_EXIT(OuterFrame("", 1), ExitedWithCode(0),
              AllOf(ContainsRegex("<[^ ]*ErrorHandlingTest +OuterFrame"),
                    Not(HasSubstr("InnerFrame(int) +"))));
  EXPECT_EXIT(OuterFrame("", 1000), ExitedWithCode(0), "<\\|");
  EXPECT_EXIT(OuterFrame("1", 0), ExitedWithCode(0), "<\\|>");
}

}  // namespace
