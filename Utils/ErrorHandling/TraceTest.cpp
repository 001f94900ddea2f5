#include "Utils/ErrorHandling/Trace.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "Utils/ErrorHandling/TestOutput.hpp"

namespace {

struct Piece {
  int* mpStreamed;
  friend std::ostream& operator<<(std::ostream& os, const Piece& piece) {
    ++*piece.mpStreamed;
    return os << "piece";
  }
};

TEST(TraceTest, PrintsFromItsLevelOn) {
  std::ostringstream output;
  std::streambuf* buffer = std::cout.rdbuf(output.rdbuf());
  const Trace trace(5);
  int streamed = 0;
  EXPECT_EQ(trace(5, 7L, "H5Gclose(", 3, ")"), 7L);
  EXPECT_EQ(trace(6, -1, Piece{&streamed}), -1);
  EXPECT_EQ(streamed, 0);
  trace.Line(2, "opens ", Piece{&streamed});
  const FakeRuntime runtime(12);
  trace.Line(0, "ranked");
  std::cout.rdbuf(buffer);
  EXPECT_EQ(output.str(),
            "[??]     5 H5Gclose(3)=7\n"
            "[??]  2 opens piece\n"
            "[12]0 ranked\n");
}

}  // namespace
