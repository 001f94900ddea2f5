#include <gmock/gmock.h>

#include <tuple>

#include "Executables/KelmorInfo/Tests/InfoFixture.hpp"

namespace {

using PlainH5::File;
using testing::HasSubstr;

class PlanTest : public InfoFixture {};

TEST_F(PlanTest, SaysWhichStepsOfWhichFileSurvive) {
  WriteTimes(Input("1.h5"), "/x.dat", {0, 1, 2, 3});
  WriteTimes(Input("2.h5"), "/x.dat", {2.5, 3.5, 4.5, 20, 21, 22});
  // Of each file the pieces: whether they are kept, how many steps, and their times.
  const std::tuple<Arguments, const char*, const char*> cases[] = {
      {{}, "[[true,3,0.0,2.0],[false,1,3.0,3.0]]", "[[true,3,2.5,4.5],[true,3,20.0,22.0]]"},
      {{"-NoWipe"}, "[[true,4,0.0,3.0]]", "[[true,3,2.5,4.5],[true,3,20.0,22.0]]"},
      {{"-DeltaT", "2"},
       "[[true,1,0.0,0.0],[false,3,1.0,3.0]]",
       "[[true,1,2.5,2.5],[false,1,3.5,3.5],[true,1,4.5,4.5],[true,1,20.0,20.0],"
       "[false,1,21.0,21.0],[true,1,22.0,22.0]]"},
  };
  for (auto [arguments, first, second] : cases) {
    arguments.insert(arguments.end(), {"-plan", "1.h5", "2.h5"});
    const Json dataset = PrintJson(arguments)["datasets"][0];
    Json found = Json::array();
    for (const Json& file : dataset["files"]) {
      Json& pieces = found.emplace_back(Json::array());
      for (const Json& piece : file["pieces"]) {
        pieces.push_back(
            {!piece["is_wiped"], piece["steps"], piece["times"]["from"], piece["times"]["to"]});
      }
    }
    EXPECT_EQ(found, Json({Json::parse(first), Json::parse(second)}));
    EXPECT_EQ(dataset["gaps"], Json::parse(R"([{"from": 4.5, "to": 20.0}])"));
  }
  WriteTimes(Input("3.h5"), "/x.dat", {0, 1, 3, 4, 6, 7, 9, 10, 12});
  EXPECT_THAT(Print({"-plan", "-DeltaT", "2", "3.h5"}), HasSubstr(", 1 step at t = 9\n"));
}

TEST_F(PlanTest, ReportsEverythingThatDisagrees) {
  const auto write = [this](const char* name, double t) {
    File& file = Input(name);
    WriteTimes(file, "/x.dat", {t, t + 1});
    WriteTimes(file, "/fine.dat", {t, t + 1});
    file.Version("/V.ver", 2);
    WriteTdm(file, "/t.tdm", {{t, 12, 2, 2}}, Count(0, 12));
  };
  write("1.h5", 0);
  File& two = Input("2.h5");
  two.Table("/x.dat", {{1, 2, 3}});
  two.Version("/V.ver", 3);
  WriteTdm(two, "/t.tdm", {{1, 12, 12}}, Count(0, 12), "TensorDim=1; TensorSymm=1; DataMeshDim=1;");
  two.Characters("/s.txt", std::string("a\0b", 3));
  write("3.h5", 2);
  Input("4.h5").Table("/x.dat", {{4, 5, 6, 7}});
  const Json plan = PrintJson({"-plan", "1.h5", "2.h5", "3.h5", "4.h5", "1.h5"}, 1);
  Strings found;
  for (const Json& disagreement : plan["disagreements"]) {
    std::string& text = found.emplace_back();
    for (const Json& dataset : disagreement["datasets"]) {
      text += dataset["name"].get<std::string>();
    }
    for (const Json& file : disagreement["files"]) {
      text += " " + file["name"].get<std::string>();
    }
  }
  EXPECT_THAT(found,
              testing::UnorderedElementsAre(" 1.h5", "/V.ver", "/x.dat", "/t.tdm", "/s.txt 2.h5"))
      << plan["disagreements"].dump(1);
  EXPECT_EQ(plan["disagreements"][2]["values"],
            Json::parse(R"([{"value": "2 columns", "files": [{"name": "1.h5"}, {"name": "3.h5"}]},
                            {"value": "3 columns", "files": [{"name": "2.h5"}]},
                            {"value": "4 columns", "files": [{"name": "4.h5"}]}])"));
  for (const Json& dataset : plan["datasets"]) {
    EXPECT_EQ(dataset["agrees"], dataset["name"] == "/fine.dat") << dataset.dump();
  }
}

TEST_F(PlanTest, TellsOfTheOutputAndOfNothing) {
  WriteTimes(Input("a.h5"), "/x.dat", {0, 1});
  Input("empty.h5").Group("/Run.dir");
  for (const auto& [output, text] :
       {std::pair("a.h5", "The output file exists already"), {"no/b.h5", "does not exist"}}) {
    EXPECT_THAT(Print({"-plan", "-o", output, "a.h5"}, 1), HasSubstr(text));
  }
  EXPECT_EQ(Print({"-plan", "-o", "b.h5", "empty.h5"}),
            "Kelmor would find no datasets and write no output.\n");
}

}  // namespace
