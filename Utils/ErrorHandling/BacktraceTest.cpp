#include "Utils/ErrorHandling/Backtrace.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

// Both are outside an anonymous namespace, since the dynamic linker knows exported functions only,
// and print after the call, or it would be a tail call that leaves no frame.
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

TEST(BacktraceTest, OnceInnermostFrameFirst) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a new process each, for there is one a process
  const std::string outer =
      "[^ ]*ErrorHandlingTest +OuterFrame\\(char const\\*, int\\) \\+ 0x[0-9a-f]+\n";
  EXPECT_EXIT(OuterFrame("", 0), testing::ExitedWithCode(0),
              "<[^ ]*ErrorHandlingTest +InnerFrame\\(int\\) \\+ 0x[0-9a-f]+\n" + outer +
                  ".*0x0 \\+ 0x.*\n[^ ]+libc[^ ]* +is loaded at 0x[0-9a-f]+000\n"
                  ".*\\|[^ ]*ErrorHandlingTest[^ ]* ?\\[0x[0-9a-f]+\\]\n");
  EXPECT_EXIT(OuterFrame("", 1), testing::ExitedWithCode(0), "^<" + outer);
  EXPECT_EXIT(OuterFrame("", 1000), testing::ExitedWithCode(0), "<\\|");
  EXPECT_EXIT(OuterFrame("1", 0), testing::ExitedWithCode(0), "<\\|>");
}
