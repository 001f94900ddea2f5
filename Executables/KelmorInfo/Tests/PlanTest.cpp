#include <gmock/gmock.h>

#include "Executables/KelmorInfo/Tests/InfoFixture.hpp"

namespace {

using PlainH5::File;
using testing::HasSubstr;

class PlanTest : public InfoFixture {
 protected:
  // The pieces of one file's part in the first dataset, as "+3 0..2" for kept and "-1 5..5".
  static Strings Pieces(const Json& plan, std::size_t file) {
    Strings pieces;
    for (const Json& piece : plan["datasets"][0]["files"][file]["pieces"]) {
      pieces.push_back((piece["kept"].get<bool>() ? "+" : "-") + piece["steps"].dump() + " " +
                       piece["from"].dump() + ".." + piece["to"].dump());
    }
    return pieces;
  }
};

TEST_F(PlanTest, SaysWhichStepsOfWhichFileSurvive) {
  WriteTimes(Input("1.h5"), "/x.dat", {0, 1, 2, 3});
  WriteTimes(Input("2.h5"), "/x.dat", {2.5, 3.5, 4.5, 20, 21, 22});
  struct Case {
    Arguments mArguments;
    Strings mFirst;
    Strings mSecond;
    Json mGaps;
  };
  const Case cases[] = {
      {{}, {"+3 0.0..2.0", "-1 3.0..3.0"}, {"+3 2.5..4.5", "+3 20.0..22.0"}, {{4.5, 20.0}}},
      {{"-NoWipe"}, {"+4 0.0..3.0"}, {"+3 2.5..4.5", "+3 20.0..22.0"}, {{4.5, 20.0}}},
      {{"-DeltaT", "2"},
       {"+1 0.0..0.0", "-3 1.0..3.0"},
       {"+1 2.5..2.5", "-1 3.5..3.5", "+1 4.5..4.5", "+1 20.0..20.0", "-1 21.0..21.0",
        "+1 22.0..22.0"},
       {{4.5, 20.0}}},
  };
  for (const Case& c : cases) {
    Arguments arguments = c.mArguments;
    arguments.insert(arguments.end(), {"1.h5", "2.h5"});
    const Json plan = Plan(arguments);
    EXPECT_EQ(Pieces(plan, 0), c.mFirst) << plan.dump();
    EXPECT_EQ(Pieces(plan, 1), c.mSecond) << plan.dump();
    EXPECT_EQ(plan["datasets"][0]["gaps"], c.mGaps);
  }
  const std::string text = Print({"-plan", "1.h5", "2.h5"});
  EXPECT_THAT(text, HasSubstr("Kelmor would join 2 files into 1 dataset, 144 bytes uncompressed."));
  EXPECT_THAT(text, HasSubstr("1.h5  3 of 4  wiping 1 step at t = 3\n"));
  EXPECT_THAT(text, HasSubstr("gap between t = 4.5 and 20\n"));
}

TEST_F(PlanTest, ReportsEverythingThatDisagrees) {
  const auto write = [this](const char* name, double t) {
    File& file = Input(name);
    for (const char* table : {"/x.dat", "/fine.dat"}) {
      WriteTimes(file, table, {t, t + 1});
    }
    file.Version("/V.ver", 2);
    WriteTdm(file, "/t.tdm", {{t, 12, 2, 2}}, Count(0, 12), sTwoDimensionalSpec);
  };
  write("1.h5", 0);
  File& two = Input("2.h5");
  two.Table("/x.dat", {{1, 2, 3}});
  two.Version("/V.ver", 3);
  WriteTdm(two, "/t.tdm", {{1, 12, 12}}, Count(0, 12), "TensorDim=1; TensorSymm=1; DataMeshDim=1;");
  two.Characters("/s.txt", std::string("a\0b", 3));
  write("3.h5", 2);
  Input("4.h5").Table("/x.dat", {{4, 5, 6, 7}});
  const Json plan = Plan({"1.h5", "2.h5", "3.h5", "4.h5", "1.h5"}, 1);
  Strings found;
  for (const Json& disagreement : plan["disagreements"]) {
    found.push_back(disagreement["dataset"].get<std::string>() + " " +
                    disagreement["file"].get<std::string>());
  }
  EXPECT_THAT(
      found, testing::UnorderedElementsAre(" 1.h5", "/V.ver ", "/x.dat ", "/t.tdm ", "/s.txt 2.h5"))
      << plan["disagreements"].dump(1);
  EXPECT_EQ(plan["disagreements"][2]["values"],
            Json::parse(R"([{"value": "2 columns", "files": ["1.h5", "3.h5"]},
                            {"value": "3 columns", "files": ["2.h5"]},
                            {"value": "4 columns", "files": ["4.h5"]}])"));
  for (const Json& dataset : plan["datasets"]) {
    EXPECT_EQ(dataset["agrees"], dataset["name"] == "/fine.dat") << dataset.dump();
  }
}

TEST_F(PlanTest, TellsOfTheOutputAndOfNothing) {
  WriteTimes(Input("a.h5"), "/x.dat", {0, 1});
  Input("empty.h5").Group("/Run.dir");
  EXPECT_THAT(Print({"-plan", "-o", "a.h5", "a.h5"}, 1),
              HasSubstr("The output file exists already"));
  EXPECT_THAT(Print({"-plan", "-o", "no/b.h5", "a.h5"}, 1), HasSubstr("does not exist"));
  EXPECT_THAT(Print({"-plan", "-o", "b/", "a.h5"}, 1), HasSubstr("is not the name of a file"));
  EXPECT_EQ(Print({"-plan", "-o", "b.h5", "empty.h5"}),
            "Kelmor would find no datasets and write no output.\n");
}

}  // namespace
