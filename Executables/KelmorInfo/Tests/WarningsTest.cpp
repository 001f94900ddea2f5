#include <gmock/gmock.h>

#include <cmath>

#include "Executables/KelmorInfo/Tests/InfoFixture.hpp"

namespace {

using PlainH5::File;
using testing::ElementsAre;
using testing::HasSubstr;

class WarningsTest : public InfoFixture {
 protected:
  // "kind dataset+others: value in files; value in files" for each warning.
  Strings Warnings(Arguments arguments) {
    arguments.insert(arguments.begin(), "-plan");
    const Json plan = PrintJson(arguments);
    Strings found;
    for (const Json& warning : plan["warnings"]) {
      std::string text = warning["kind"].get<std::string>();
      for (const Json& dataset : warning["datasets"]) {
        text +=
            (&dataset == &warning["datasets"][0] ? " " : "+") + dataset["name"].get<std::string>();
      }
      for (const Json& value : warning["values"]) {
        text += (text.find(": ") == std::string::npos ? ": " : "; ") +
                value["value"].get<std::string>() + " in";
        for (const Json& file : value["files"]) {
          text += " " + file["name"].get<std::string>();
        }
      }
      found.push_back(text);
    }
    return found;
  }
};

TEST_F(WarningsTest, TellOfTimesThatAreLost) {
  const double nan = std::nan("");
  const struct {
    const char* mName;
    std::vector<std::vector<double>> mTimes;  // per file
    Arguments mOptions;
    Strings mWarnings;
  } cases[] = {
      {"restarts", {{0, 1, 2, 3}, {2.5, 3.5, 4.5}, {4.5, 5.5}}, {}, {}},
      {"restart with longer steps", {{0, 0.1, 0.2, 0.3, 0.4, 0.5}, {0.1, 0.5, 0.9}}, {}, {}},
      {"restart that made one step", {{0, 10}, {9}}, {}, {}},
      {"thinned", {{0, 1, 2, 3, 4, 5, 6, 7}}, {"-DeltaT", "5"}, {}},
      {"nothing is wiped", {{5, 6}, {0, 7}}, {"-NoWipe"}, {}},
      {"one step short",
       {{0, 0.1, 0.2, 0.1 + 0.2}, {0, 0.1, 0.2}},
       {},
       {"wiped /x.dat: 4 steps at t = 0 ... 0.30000000000000004 in 0.h5"}},
      {"restart that ended early",
       {{0, 1, 2, 3, 4, 5}, {2.5, 3.5}},
       {},
       {"time /x.dat: 1 step at t = 5 (the joined series has t = 0 ... 3.5) in 0.h5"}},
      {"restart with a hole",
       {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}, {2, 8.5, 9.5, 10.5}},
       {},
       {"time /x.dat: 4 steps at t = 4 ... 7 (the joined series has t = 0 ... 10.5) in 0.h5",
        "gap /x.dat: 6.5 between t = 2 and 8.5, usually 1 in 1.h5"}},
      {"older checkpoint",
       {{0, 1, 2}, {2, 3, 4}, {1, 2, 3, 4, 5}},
       {},
       {"wiped /x.dat: 3 steps at t = 2 ... 4 in 1.h5"}},
      {"swapped",
       {{0, 1, 2}, {6, 7, 8}, {3, 4, 5}},
       {},
       {"time /x.dat: 2 steps at t = 7 ... 8 (the joined series has t = 0 ... 5) in 1.h5",
        "order /x.dat: 2.h5 begins and ends before 1.h5, but comes after it in; "
        "t = 0 ... 2 in 0.h5; t = 3 ... 5 in 2.h5; t = 6 ... 8 in 1.h5",
        "wiped /x.dat: 3 steps at t = 6 ... 8 in 1.h5"}},
      {"no number at the end",
       {{0, 1}, {2, nan}},
       {},
       {"time /x.dat: 2 steps at t = 0 ... 1 (the joined series has no times) in 0.h5; "
        "1 step at t = 2 (the joined series has no times) in 1.h5",
        "nan /x.dat: 1 of 2 steps, the first is step 1 (nan) in 1.h5",
        "wiped /x.dat: 2 steps at t = 0 ... 1 in 0.h5"}},
      {"backwards within a file",
       {{0, 1, 2, 1.5, 2.5, 2.25, 3}},
       {},
       {"order /x.dat: step 3 (t = 1.5) follows t = 2, and 1 more such step in 0.h5"}},
      {"gap between files",
       {{0, 1, 2}, {2, 3}, {20, 21, 22}},
       {},
       {"gap /x.dat: 17 between t = 3 and 20, usually 1 in 1.h5 2.h5"}},
  };
  for (const auto& [name, times, options, warnings] : cases) {
    Arguments arguments = options;
    for (std::size_t i = 0; i < times.size(); ++i) {
      arguments.push_back(std::to_string(i) + ".h5");
      WriteTimes(Input(arguments.back()), "/x.dat", times[i]);
    }
    EXPECT_EQ(Warnings(arguments), warnings) << name;
  }
}

TEST_F(WarningsTest, TellOfWhatIsNotCarriedOverOnceForAllDatasets) {
  for (const char* name : {"1.h5", "2.h5", "3.h5"}) {
    File& file = Input(name);
    const double t = *name - '0';
    for (const char* table : {"/A.dir/x.dat", "/A.dir/y.dat"}) {
      file.Table(table, {{t, 1, 2}},
                 {.mLegend = *name == '2' ? Strings{"t", "b", "a"} : Strings{"t", "a", "b"}});
      file.StringAttribute(table, "units", {"s"});
    }
    file.Table("/unnamed.dat", {{t, 1}}, {.mLegend = *name == '2' ? Strings{} : Strings{"t", "u"}});
    file.StringAttribute("/unnamed.dat", "scale", {"2"});
    if (*name != '2') {
      WriteCoef(file, "/c.coef", {{t, 1}}, Count(0, 1));
      WriteTdm(file, "/t.tdm", {{t, 12, 2, 2}}, Count(0, 12));
      file.Version("/V.ver", 1);
    }
  }
  Input("3.h5").StringAttribute("/", "author", {"me"});
  Input("3.h5").StringAttribute("/c.coef", "note", {"new"});
  Input("3.h5").Table("/c.coef/more.dat", {{1}});
  EXPECT_THAT(
      Warnings({"1.h5", "2.h5", "3.h5"}),
      ElementsAre("legend /A.dir/x.dat+/A.dir/y.dat: t, a, b in 1.h5 3.h5; 'b' instead of 'a' as "
                  "column 1, 'a' instead of 'b' as column 2 in 2.h5",
                  "missing /V.ver+/c.coef+/t.tdm: missing in 2.h5",
                  "dropped /A.dir/x.dat+/A.dir/y.dat: attribute 'units' in 1.h5 2.h5 3.h5",
                  "dropped /unnamed.dat: attribute 'scale' in 1.h5 2.h5 3.h5",
                  "dropped /c.coef: attribute 'note' in 3.h5; member 'more.dat' in 3.h5",
                  "dropped /: attribute 'author' in 3.h5"));
  const std::string text = Print({"-svg", "plan.svg", "1.h5", "2.h5", "3.h5"});
  EXPECT_THAT(text, testing::StartsWith("Warnings:\n  legend: /A.dir/x.dat, /A.dir/y.dat:\n"));
  EXPECT_THAT(text, HasSubstr("\n      attribute 'units' in 1.h5, 2.h5, 3.h5\n"));
  EXPECT_THAT(PlainH5::Bytes(Path("plan.svg")),
              HasSubstr(">missing: /V.ver and 2 more: missing in 2.h5<"));
}

}  // namespace
