#include <gmock/gmock.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <regex>

#include "Executables/KelmorInfo/PlanDrawing.hpp"
#include "Executables/KelmorInfo/PlanPicture.hpp"
#include "Executables/KelmorInfo/Tests/InfoFixture.hpp"
#include "Executables/KelmorInfo/TimeScale.hpp"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

// What the pattern's group finds on each line of a picture, but for the first `skipped` lines.
Strings Found(const std::string& picture, const std::string& pattern, std::size_t skipped = 0) {
  const std::regex regex(pattern);
  Strings found;
  std::istringstream lines(picture);
  for (std::string line; std::getline(lines, line);) {
    if (std::smatch match; line.size() < 1000 && std::regex_search(line, match, regex)) {
      found.push_back(match[1]);
    }
  }
  return {found.begin() + static_cast<std::ptrdiff_t>(skipped), found.end()};
}

// Places of the bars of a fill, without the one that explains them.
Strings Bars(const std::string& picture, const std::string& fill) {
  return Found(picture, "<rect (x=.*) height=.* fill=\"" + fill, 1);
}
constexpr char sKept[] = "#2f6690";

Plan PlanOf(const std::vector<PlannedSteps>& steps, int files) {
  Plan plan;
  for (int i = 0; i < files; ++i) {
    plan.mFiles.push_back({"segment" + std::to_string(i) + ".h5", 0, true, {}});
  }
  plan.mSteps = steps;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    plan.mSteps[i].mHasTimes = true;
    plan.mDatasets.push_back({"/set" + std::to_string(i) + ".dat", "dat", i, 0, true});
  }
  return plan;
}

TEST(PlanPicture, BarsLieAlongTime) {
  PlannedSteps steps;
  steps.mFiles = {{0, 0, 0, {{true, 5, 0, 40}, {false, 2, 45, 50}}},
                  {1, 0, 0, {{true, 6, 44, 60}}},
                  {2, 0, 0, {{true, 2, 80, 100}}}};
  steps.mGaps = {{60, 80}};
  const std::string picture = DrawPlan(PlanOf({steps}, 3));
  // A unit of time takes 7.5982 pixels. Between kept and wiped steps of a file there is no gap.
  EXPECT_EQ(Bars(picture, sKept), Strings({R"(x="104.18" y="105.40" width="322.92")",
                                           R"(x="438.50" y="125.40" width="121.57")",
                                           R"(x="712.04" y="145.40" width="151.96")"}));
  EXPECT_EQ(Bars(picture, "url\\(#wiped\\)"), Strings({R"(x="427.10" y="105.40" width="56.99")"}));
  EXPECT_EQ(Found(picture, "<rect (x=.*)#1b2f40").size(), 2U) << "the join on each side of the gap";
  EXPECT_EQ(Bars(picture, "#f6d57a"), Strings({R"(x="560.07" y="102.00" width="151.96")"}));
  for (const char* text : {">segment1.h5</text>", ">gap 20</text>", ">time</text>", ">100</text>",
                           ">/set0.dat</text>"}) {
    EXPECT_THAT(picture, HasSubstr(text));
  }
  steps.mFiles[0].mPieces[0].mFirst = 3;
  EXPECT_EQ(TimeScale(PlanOf({steps}, 3), 0, 1).Ticks()[0].mLabel, "10");
  Plan plan = PlanOf({steps}, 3);
  plan.mDatasets = {{"/a.dat", "dat", 0, 0, false}, {"/b.dat", "dat", 0, 0, true}};
  EXPECT_THAT(DrawPlan(plan), HasSubstr("not all agree"));
}

// Two files with a third between them that disagrees, and one too short to be seen.
Plan OddPlan() {
  PlannedSteps steps;
  steps.mFiles = {{0, 5, 6, {{true, 5, 0, 40}}, 1},
                  {2, 9, 9, {{true, 5, 60, 80}}},
                  {3, 4, 4, {{true, 4, 99.9, 100}}}};
  steps.mMisfits = {{1, true, 41, 59}};
  steps.mGaps = {{40, 60}, {80, 99.9}};
  Plan plan = PlanOf({steps}, 4);
  plan.mDisagreements = {{"/set0.dat", "", "It differs."}};
  return plan;
}

TEST(PlanPicture, ShowsWhatDisagreesAndWhatIsTooShort) {
  const std::string picture = DrawPlan(OddPlan());
  const auto gap = [](const char* part) { return "gap between " + std::string(part); };
  EXPECT_THAT(picture, testing::Not(HasSubstr(gap("40"))));
  EXPECT_THAT(picture, HasSubstr(gap("80 and 99.9")));
  // With the one that explains it.
  EXPECT_EQ(Found(picture, "(stroke-dasharray=)").size(), 2U);
  for (const char* text : {">disagrees</text>", "0 steps kept, 1 without a time<", ">99.90</text>",
                           ">/set0.dat: It differs.</text>"}) {
    EXPECT_THAT(picture, HasSubstr(text));
  }
  PlannedSteps short_;
  short_.mFiles = {{0, 0, 0, {{true, 2, -1e-5, 1e-5}}}};
  EXPECT_EQ(TimeScale(PlanOf({short_}, 1), 0, 1).Ticks()[0].mLabel, "-1e-05");
}

TEST(PlanPicture, HasAFormInCharacters) {
  std::ostringstream text;
  DrawInText(text, OddPlan(), 60);
  EXPECT_EQ(text.str(), R"(/set0.dat                0 of 0 steps kept, 1 without a time
segment0.h5  ███████████████                          5 of 6
segment1.h5                ╳╳╳╳╳╳╳╳                disagrees
segment2.h5                       ████████            9 of 9
segment3.h5                                     █     4 of 4
joined       ▀▀▀▀▀▀▀▀▀▀▀▀▀▀▀      ▀▀▀▀▀▀▀▀······▀          0
             0  10  20     40  50     70     90
enlarged, since it is too short to be seen above:
segment3.h5        ████████████████████████           4 of 4
joined       ······▀▀▀▀▀▀▀▀▀▀▀▀▀▀▀▀▀▀▀▀▀▀▀▀                0
              99.88    99.92     99.96    100.00

█ kept  ░ wiped  ▓ both  ╳ disagrees  · gap
)");
}

TEST(PlanPicture, StaysReadableWhateverThePlan) {
  PlannedSteps many;
  for (int i = 0; i < 300; ++i) {
    many.mFiles.push_back({i, 0, 0, {{true, 2, 10.0 * i, 10.0 * i + 10}}});
  }
  PlannedSteps comb;
  comb.mFiles = {{0, 0, 0, {}}};
  for (int i = 0; i < 100000; ++i) {
    comb.mFiles[0].mPieces.push_back({i % 2 == 0, 1, 0.03 * i, 0.03 * i});
  }
  const double infinity = std::numeric_limits<double>::infinity();
  PlannedSteps odd;
  odd.mFiles = {{0, 0, 0, {{true, 1, 5, 5}}},
                {1, 0, 0, {{true, 2, -infinity, infinity}}},
                {2, 0, 0, {{true, 1, std::nan(""), std::nan("")}}}};
  // What has no time has no place.
  EXPECT_EQ(Bars(DrawPlan(PlanOf({odd}, 3)), sKept).size(), 2u);
  PlannedSteps interrupted;
  interrupted.mFiles = {{0, 0, 0, {{true, 2, 0, 1}, {false, 1, infinity, infinity}}},
                        {1, 0, 0, {{true, 2, 1, 10}}}};
  const Strings bars = Bars(DrawPlan(PlanOf({interrupted}, 2)), sKept);
  EXPECT_THAT(bars[0], HasSubstr("width=\"75.98\""));  // a tenth of all
  Plan failing = PlanOf({odd, comb, many}, 300);
  failing.mDisagreements.assign(1000, {"/<a>&\"b\x01\xff.dat", "f.h5", std::string(5000, 'x')});
  failing.mDatasets[0].mName = "/<a>&\"b\x01\xff.dat";
  const std::string picture = DrawPlan(failing);
  for (const char* bad : {"nan\"", "inf\"", "<a>", "\xff"}) {
    EXPECT_THAT(picture, testing::Not(HasSubstr(bad)));
  }
  // Not an element for each of very many steps, and labels no closer than they are high.
  EXPECT_LT(picture.size(), 400000u);
  double above = -100;
  for (const std::string& label : Found(picture, "<text .* y=\"([^\"]*)\".*segment")) {
    EXPECT_GE(std::stod(label) - above, 7.99);
    above = std::stod(label);
  }
  EXPECT_LT(std::stod(Found(picture, "<svg .* height=\"([^\"]*)\"")[0]), 3000);
}

class PictureTest : public InfoFixture {};

TEST_F(PictureTest, GoesToANewFile) {
  WriteTimes(Input("1.h5"), "/x.dat", {0, 1, 2, 3});
  WriteTimes(Input("1.h5"), "/y.dat", {0, 1, 2, 3});
  EXPECT_EQ(Print({"-svg", "plan.svg", "1.h5"}), Print({"-plan", "1.h5"}));
  // There is one panel for both, with one bar.
  EXPECT_EQ(Bars(PlainH5::Bytes(Path("plan.svg")), sKept).size(), 1u);
  Input("2.h5").Table("/x.dat", {{4, 0, 0}, {7, 0, 0}});
  setenv("COLUMNS", "40", 1);
  EXPECT_THAT(Print({"-draw", "1.h5", "2.h5"}, 1),
              HasSubstr("\n1.h5    ██████████                4 of 4"
                        "\n2.h5                ╳╳╳╳╳╳╳╳╳  disagrees\n"));
  unsetenv("COLUMNS");
  EXPECT_EQ(Info({"-svg", "plan.svg", "1.h5"}).mStatus, 2);  // which checks that files stay
  fs::create_symlink("nowhere.svg", Path("link.svg"));
  const RunResult result = Info({"-svg", "link.svg", "1.h5"});
  EXPECT_EQ(result.mStatus, 255);
  EXPECT_THAT(result.mReports, HasSubstr("Cannot create picture link.svg"));
  EXPECT_FALSE(fs::exists(Path("nowhere.svg")));
}

}  // namespace
