#include "Executables/Series/SelectTimeSteps.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>

namespace {

using Times = std::vector<MyVector<double>>;
constexpr double sNaN = std::numeric_limits<double>::quiet_NaN();

struct SelectCase {
  const char* mName;
  Times mTimes;  // per file
  double mDeltaT;
  std::string mKept;  // a mark per step, '|' between files: 'x' kept, '.' wiped
  double mMaximumGap;
};

const SelectCase sCases[] = {
    {"later file restarts", {{0, 1, 2, 3}, {2.5, 3.5}}, 1e-10, "xxx.|xx", 1},
    {"same files, other order", {{2.5, 3.5}, {0, 1, 2, 3}}, 1e-10, "..|xxxx", 1},
    {"a restart reaches past a whole file", {{0, 1}, {2, 3}, {0.5, 4}}, 1e-10, "x.|..|xx", 3.5},
    {"the later of two close steps survives", {{0, 1e-11, 1}}, 1e-10, ".xx", 1 - 1e-11},
    {"a gap of exactly DeltaT stays", {{0, 0.5, 1}}, 0.5, "xxx", 0.5},
    {"a gap just below does not", {{0, 0.5, 1}}, 0.5000001, "x.x", 1},
    {"DeltaT counts from the step kept, not the next",
     {{0, 0.4, 0.8, 1.2}},
     0.5,
     ".x.x",
     1.2 - 0.4},
    {"equal times stay at DeltaT 0", {{1, 1}, {1, 2}}, 0, "xx|xx", 1},
    {"steps back are wiped at DeltaT 0", {{0, 2, 1}}, 0, "x.x", 1},
    {"equal times across files", {{0, 1}, {1, 2}}, 1e-10, "x.|xx", 1},
    {"the gap of the last step is from 0", {{-7, -5}}, 1e-10, "xx", 5},
    {"but not below 0", {{5}}, 1e-10, "x", 0},
    {"files without steps", {{}, {1}, {}}, 1e-10, "|x|", 0},
    {"no steps at all", {{}}, 1e-10, "", 0},
    {"what is not a time goes", {{0, sNaN, 2}}, 1e-10, "x.x", 2},
    {"unless it is the last: nothing lies before it", {{0, 1}, {sNaN}}, 1e-10, "..|x", 0},
};

TEST(SelectTimeStepsTest, StepsSurviveIfTheyLieBeforeTheNextKept) {
  for (const SelectCase& c : sCases) {
    std::vector<MyVector<bool>> keep(7);  // what was there is forgotten
    double maximumGap = -1;
    const std::int64_t kept = SelectTimeSteps(c.mTimes, keep, c.mDeltaT, false, maximumGap);
    std::string marks;
    std::int64_t expectedKept = 0;
    for (std::size_t file = 0; file < keep.size(); ++file) {
      marks += file == 0 ? "" : "|";
      for (const bool isKept : keep[file]) {
        marks += isKept ? 'x' : '.';
        expectedKept += isKept;
      }
    }
    EXPECT_EQ(marks, c.mKept) << c.mName;
    EXPECT_EQ(kept, expectedKept) << c.mName;
    EXPECT_EQ(maximumGap, c.mMaximumGap) << c.mName;
  }
}

TEST(SelectTimeStepsTest, NoWipeKeepsAllAndLeavesTheGapAlone) {
  std::vector<MyVector<bool>> keep;
  double maximumGap = 42;
  EXPECT_EQ(SelectTimeSteps({{3, 2, 2}, {}, {sNaN}}, keep, 1, true, maximumGap), 4);
  EXPECT_EQ(keep, (std::vector<MyVector<bool>>{{true, true, true}, {}, {true}}));
  EXPECT_EQ(maximumGap, 42);
}

TEST(SelectTimeStepsTest, RunsOfKeptSteps) {
  EXPECT_EQ(KeptRuns({true, false, false, true, true}), (std::vector<StepRun>{{0, 1}, {3, 5}}));
  EXPECT_TRUE(KeptRuns({false}).empty());
  EXPECT_TRUE(KeptRuns({}).empty());
}

TEST(BlocksizeTest, DoublesUntilTheBlocksAreFew) {
  const std::pair<int, unsigned> cases[] = {{-5, 1},
                                            {0, 1},
                                            {1, 1},
                                            {2, 2},
                                            {6, 2},
                                            {7, 4},
                                            {20, 4},
                                            {21, 8},
                                            {56, 8},
                                            {57, 16},
                                            {std::numeric_limits<int>::max(), 1u << 26}};
  for (const auto& [n, expected] : cases) {
    EXPECT_EQ(Blocksize(n), expected) << n;
  }
}

}  // namespace
