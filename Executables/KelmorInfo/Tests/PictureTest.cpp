#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <tuple>
#include <utility>

#include "Executables/KelmorInfo/PlanPicture.hpp"
#include "Executables/KelmorInfo/Tests/InfoFixture.hpp"
#include "Executables/KelmorInfo/Text.hpp"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

// All elements of a kind, each on lines of its own, in the order of drawing.
Strings Elements(const std::string& picture, const std::string& kind) {
  Strings elements;
  const std::string begin = "<" + kind + " ";
  for (std::size_t at = picture.find(begin); at != std::string::npos;
       at = picture.find(begin, at + 1)) {
    elements.push_back(picture.substr(at, picture.find("\n<", at) - at));
  }
  return elements;
}

std::string Attribute(const std::string& element, const std::string& name) {
  const std::string begin = " " + name + "=\"";
  const std::size_t value = element.find(begin) + begin.size();
  return element.substr(value, element.find('"', value) - value);
}

double Length(const std::string& element, const std::string& name) {
  return std::stod(Attribute(element, name));
}

struct Bar {
  double mX;
  double mY;
  double mWidth;
};

// Bars of a fill, in the order of drawing, without the one that explains them.
std::vector<Bar> Bars(const std::string& picture, const std::string& fill) {
  std::vector<Bar> bars;
  for (const std::string& rect : Elements(picture.substr(picture.find("</defs>")), "rect")) {
    if (Attribute(rect, "fill") == fill) {
      bars.push_back({Length(rect, "x"), Length(rect, "y"), Length(rect, "width")});
    }
  }
  return {bars.begin() + 1, bars.end()};
}
constexpr char sKept[] = "#2f6690";
constexpr char sWiped[] = "url(#wiped)";
constexpr char sGap[] = "#f6d57a";

PlannedFile Part(int file, std::vector<PlanPiece> pieces) {
  return {file, 0, 0, std::move(pieces)};
}

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
  steps.mFiles = {Part(0, {{true, 5, 0, 40}, {false, 2, 45, 50}}), Part(1, {{true, 6, 44, 60}}),
                  Part(2, {{true, 2, 80, 100}})};
  steps.mGaps = {{60, 80}};
  const std::string picture = DrawPlan(PlanOf({steps}, 3));
  const std::vector<Bar> kept = Bars(picture, sKept);
  const std::vector<Bar> wiped = Bars(picture, sWiped);
  const std::vector<Bar> gaps = Bars(picture, sGap);
  ASSERT_EQ(std::tuple(kept.size(), wiped.size(), gaps.size()), std::tuple(3, 1, 1));
  const double left = kept[0].mX;
  const double scale = (kept[2].mX + kept[2].mWidth - left) / 100;
  EXPECT_GT(scale, 3);  // most of the width is for the bars
  const auto expect = [&](const Bar& bar, double from, double to) {
    EXPECT_NEAR(bar.mX, left + from * scale, 0.02);
    EXPECT_NEAR(bar.mWidth, (to - from) * scale, 0.02);
  };
  // Between kept and wiped steps of a file there is no gap.
  expect(kept[0], 0, 42.5);
  expect(wiped[0], 42.5, 50);
  expect(kept[1], 44, 60);
  expect(gaps[0], 60, 80);
  EXPECT_EQ(wiped[0].mY, kept[0].mY);
  EXPECT_LT(kept[0].mY, kept[1].mY);
  for (const char* text : {">segment1.h5</text>", ">gap 20</text>", ">time</text>", ">100</text>",
                           ">/set0.dat</text>"}) {
    EXPECT_THAT(picture, HasSubstr(text));
  }
}

TEST(PlanPicture, StaysReadableWhateverThePlan) {
  PlannedSteps many;
  for (int i = 0; i < 300; ++i) {
    many.mFiles.push_back(Part(i, {{true, 2, 10.0 * i, 10.0 * i + 10}}));
  }
  PlannedSteps comb;
  comb.mFiles = {Part(0, {})};
  for (int i = 0; i < 100000; ++i) {
    comb.mFiles[0].mPieces.push_back({i % 2 == 0, 1, 0.03 * i, 0.03 * i});
  }
  const double infinity = std::numeric_limits<double>::infinity();
  PlannedSteps odd;
  odd.mFiles = {Part(0, {{true, 1, 5, 5}}), Part(1, {{true, 2, -infinity, infinity}}),
                Part(2, {{true, 1, std::nan(""), std::nan("")}})};
  // What has no time has no place.
  EXPECT_EQ(Bars(DrawPlan(PlanOf({odd}, 3)), sKept).size(), 2u);
  Plan failing = PlanOf({odd, comb, many}, 300);
  failing.mDisagreements.assign(1000, {"/<a>&\"b\x01\xff.dat", "f.h5", std::string(5000, 'x')});
  failing.mDatasets[0].mName = "/<a>&\"b\x01\xff.dat";
  for (const Plan& plan :
       {PlanOf({odd}, 3), PlanOf({comb}, 1), PlanOf({many}, 300), failing, Plan()}) {
    const std::string picture = DrawPlan(plan);
    EXPECT_THAT(picture, testing::Not(HasSubstr("nan\"")));
    EXPECT_THAT(picture, testing::Not(HasSubstr("inf\"")));
    EXPECT_THAT(picture, testing::Not(HasSubstr("<a>")));
    EXPECT_EQ(ValidUtf8(picture), picture);
    // Not an element for each of very many steps, and labels no closer than they are high.
    EXPECT_LT(picture.size(), 400000u);
    double above = -100;
    std::size_t labels = 0;
    for (const std::string& text : Elements(picture, "text")) {
      if (text.find("segment") != std::string::npos) {
        EXPECT_GE(Length(text, "y") - above, Length(text, "font-size") - 0.01);
        above = Length(text, "y");
        ++labels;
      }
    }
    EXPECT_GE(labels, std::min<std::size_t>(plan.mFiles.size(), 50));
    EXPECT_LT(Length(Elements(picture, "svg")[0], "height"), 3000);
  }
}

class PictureTest : public InfoFixture {};

TEST_F(PictureTest, GoesToANewFile) {
  for (const char* table : {"/<x>.dat", "/y.dat"}) {
    WriteTimes(Input("1.h5"), table, {0, 1, 2, 3});
    WriteTimes(Input("2.h5"), table, {2.5, 3.5});
  }
  EXPECT_EQ(Print({"-svg", "plan.svg", "1.h5", "2.h5"}), Print({"-plan", "1.h5", "2.h5"}));
  const std::string picture = PlainH5::Bytes(Path("plan.svg"));
  EXPECT_THAT(picture, HasSubstr(">/&lt;x&gt;.dat</text>"));
  // One panel for both, a bar for each file.
  EXPECT_EQ(Bars(picture, sKept).size(), 2u);
  EXPECT_EQ(Bars(picture, sWiped).size(), 1u);

  EXPECT_EQ(Info({"-svg", "plan.svg", "1.h5"}).mStatus, 2);  // which checks that files stay
  fs::create_symlink("nowhere.svg", Path("link.svg"));
  for (const char* path : {"link.svg", "missing/plan.svg"}) {
    const RunResult result = Info({"-svg", path, "1.h5"});
    EXPECT_EQ(result.mStatus, 255);
    EXPECT_THAT(result.mReports, HasSubstr(std::string("Cannot create picture ") + path));
  }
  EXPECT_FALSE(fs::exists(Path("nowhere.svg")));
}

}  // namespace
