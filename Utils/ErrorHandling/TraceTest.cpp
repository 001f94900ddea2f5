#include "Utils/ErrorHandling/Trace.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "Utils/ErrorHandling/TestOutput.hpp"

namespace {

TEST(TraceTest, PrintsFromItsLevelOn) {
  std::ostringstream output;
  std::streambuf* buffer = std::cout.rdbuf(output.rdbuf());
  const Trace trace(5);
  EXPECT_EQ(trace(5, 7L, "H5Gclose(", 3, ")"), 7L);
  EXPECT_EQ(trace(6, -1, "not printed"), -1);
  const FakeRuntime runtime(12);
  trace.Line(2, "opens ", 'x');
  std::cout.rdbuf(buffer);
  EXPECT_EQ(output.str(), "[??]     5 H5Gclose(3)=7\n[12]  2 opens x\n");
}

}  // namespace
