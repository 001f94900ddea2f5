#include "Executables/Series/SelectTimeSteps.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <string>

namespace {

using Times = std::vector<MyVector<double>>;
constexpr double sNaN = std::numeric_limits<double>::quiet_NaN();

struct SelectCase {
  const char* mName;
  Times mTimes;  // per file
  double mDeltaT;
  std::string mKept;  // a mark per step, '|' after each file: 'x' kept, '.' wiped
  double mMaximumGap;
};

const SelectCase sCases[] = {
    {"later file restarts", {{0, 1, 2, 3}, {2.5, 3.5}}, 1e-10, "xxx.|xx|", 1},
    {"a restart reaches past a whole file", {{0, 1}, {2, 3}, {0.5, 4}}, 1e-10, "x.|..|xx|", 3.5},
    {"a gap of exactly DeltaT stays", {{0, 0.5, 1}}, 0.5, "xxx|", 0.5},
    {"it counts from the step kept", {{0, 0.4, 0.8, 1.2}}, 0.5, ".x.x|", 1.2 - 0.4},
    {"equal times stay at DeltaT 0", {{1, 1}, {1, 0, 2}}, 0, "..|.xx|", 2},
    {"the gap of the last step is from 0", {{-7, -5}}, 1e-10, "xx|", 5},
    {"files without steps", {{}, {1}, {}}, 1e-10, "|x||", 0},
    {"what is not a time goes", {{0, sNaN, 2}}, 1e-10, "x.x|", 2},
    {"unless it is the last: nothing lies before it", {{0, 1}, {sNaN}}, 1e-10, "..|x|", 0},
};

TEST(SelectTimeStepsTest, StepsSurviveIfTheyLieBeforeTheNextKept) {
  for (const SelectCase& c : sCases) {
    std::vector<MyVector<bool>> keep(7);  // what was there is forgotten
    double maximumGap = -1;
    const std::int64_t kept = SelectTimeSteps(c.mTimes, keep, c.mDeltaT, false, maximumGap);
    std::string marks;
    for (const MyVector<bool>& file : keep) {
      std::ranges::transform(file, std::back_inserter(marks),
                             [](bool is) { return is ? 'x' : '.'; });
      marks += '|';
    }
    EXPECT_EQ(marks, c.mKept) << c.mName;
    EXPECT_EQ(kept, std::count(marks.begin(), marks.end(), 'x')) << c.mName;
    EXPECT_EQ(maximumGap, c.mMaximumGap) << c.mName;
  }
  std::vector<MyVector<bool>> keep;
  double maximumGap = 42;
  EXPECT_EQ(SelectTimeSteps({{3, 2, 2}, {}, {sNaN}}, keep, 1, true, maximumGap), 4);
  EXPECT_EQ(keep, (std::vector<MyVector<bool>>{{true, true, true}, {}, {true}}));
  EXPECT_EQ(maximumGap, 42) << "which is left alone where nothing is wiped";
  StepSelection selection(1);
  selection.Take(std::vector<double>{2.5, 4}, 2);  // the times of a file in two pieces
  selection.Take(std::vector<double>{0, 3}, 0);
  EXPECT_EQ(selection.EndFile(), (std::vector<StepRun>{{0, 1}, {2, 4}}));
}

TEST(BlocksizeTest, DoublesUntilTheBlocksAreFew) {
  EXPECT_EQ(Blocksize(6), 2U);
  EXPECT_EQ(Blocksize(7), 4U);
}

}  // namespace
