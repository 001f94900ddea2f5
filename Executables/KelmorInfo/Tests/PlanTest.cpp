#include <gmock/gmock.h>

#include <filesystem>
#include <limits>

#include "Executables/Kelmor/Tests/BadInputs.hpp"
#include "Executables/KelmorInfo/Tests/InfoFixture.hpp"

namespace {

namespace fs = std::filesystem;
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

TEST_F(PlanTest, AgreesWithTheJoin) {
  for (int k = 0; k < 4; ++k) {
    File& file = Input(std::to_string(k) + ".h5");
    const double t = 2.5 * k;
    if (k != 1) {
      WriteTimes(file, "/A.dir/x.dat", {t, t + 1, t + 2, t + 3}, k);
    }
    file.Table("/empty.dat", {}, {}, 3);
    WriteCoef(file, "/c.coef", {{t, 2}, {t + 1, 2}, {t + 3, 7}}, Count(k, 7));
    WriteTdm(file, "/t.tdm", {{t, 12, 2, 2}, {t + 3, 15, 1, 1}}, Count(k, 15), sTwoDimensionalSpec);
    file.Strings("/s.txt", {"text", std::to_string(k)}, {2});
    file.Version("/V.ver", 2);
  }
  for (Arguments arguments :
       {Arguments{}, {"-NoWipe"}, {"-DeltaT", "1.25"}, {"-skip", "/A.dir/*|*.txt"}}) {
    arguments.insert(arguments.end(), {"0.h5", "1.h5", "3.h5", "2.h5"});
    const Json plan = Plan(arguments);
    arguments.push_back("-v");
    const std::string output = Join(arguments);
    std::uint64_t bytes = 0;
    for (const Json& dataset : plan["datasets"]) {
      const std::string name = dataset["name"];
      EXPECT_TRUE(Output().Has(name)) << name;
      bytes += dataset["bytes"].get<std::uint64_t>();
      if (dataset.contains("kept")) {
        EXPECT_THAT(output, HasSubstr(name + " keeping " + dataset["kept"].dump() +
                                      " steps out of " + dataset["total"].dump() + ","));
      }
    }
    EXPECT_EQ(Output().Has("/A.dir/x.dat"), arguments[0] != "-skip");
    // Rows and columns of all tables, letters of the texts and of the version record.
    std::uint64_t written = 20 + (arguments[0] == "-skip" ? 0 : 20);
    for (const char* table : {"/A.dir/x.dat", "/c.coef/index.dat", "/c.coef/coefs.dat",
                              "/t.tdm/index.dat", "/t.tdm/data.dat"}) {
      if (Output().Has(table)) {
        const std::vector<hsize_t> dims = Output().Dims(table);
        written += dims[0] * dims[1] * 8;
      }
    }
    EXPECT_EQ(bytes, written);
    EXPECT_EQ(plan["bytes"], written);
  }
}

TEST_F(PlanTest, RefusesWhatTheJoinRefuses) {
  File& file = Input("good.h5");
  WriteTimes(file, "/x.dat", {0, 1});
  WriteCoef(file, "/c.coef", {{-1, 4}}, Count(0, 4));
  WriteTdm(file, "/t.tdm", {{-1, 12, 2, 2}}, Count(0, 12), sTwoDimensionalSpec);
  file.Strings("/s.txt", {"good"}, {1});
  for (const BadInput& bad : BadInputs()) {
    SCOPED_TRACE(bad.mObject + (": " + std::string(bad.mName)));
    if (std::string(bad.mName).ends_with("damage")) {
      continue;  // values are not read
    }
    fs::remove_all(Path("bad.h5"));
    bad.mBuild(Path("bad.h5"));
    const RunResult result = Info({"-plan", "good.h5", "bad.h5"});
    const bool isMissing = bad.mName == std::string("dangling");
    EXPECT_EQ(result.mStatus, isMissing ? 2 : 1) << result.mOutput << result.mErrors;
    // The library's own words for what does not open differ from ours.
    if (bad.mObject[0] != '\0') {
      EXPECT_THAT(result.mOutput, HasSubstr("Kelmor would refuse these files:\n"));
      EXPECT_THAT(result.mOutput, HasSubstr(bad.mObject));
      EXPECT_THAT(result.mOutput, HasSubstr("bad.h5:\n"));
    }
  }
}

TEST_F(PlanTest, ReportsEverythingThatDisagrees) {
  const auto write = [this](const char* name, double t) -> File& {
    File& file = Input(name);
    WriteTimes(file, "/x.dat", {t, t + 1});
    file.Version("/V.ver", 2);
    WriteTdm(file, "/t.tdm", {{t, 12, 2, 2}}, Count(0, 12), sTwoDimensionalSpec);
    WriteTdm(file, "/u.tdm", {{t, 12, 2, 2}}, Count(0, 12), sTwoDimensionalSpec);
    WriteTimes(file, "/fine.dat", {t, t + 1});
    return file;
  };
  write("1.h5", 0).Strings("/s.txt", {"text"}, {1});
  File& two = Input("2.h5");
  two.Table("/x.dat", {{1, 2, 3}});
  two.Version("/V.ver", 3);
  WriteTdm(two, "/t.tdm", {{1, 12, 12}}, Count(0, 12), "TensorDim=1; TensorSymm=1; DataMeshDim=1;");
  WriteTdm(two, "/u.tdm", {{1, 12, 12}}, Count(0, 12), "TensorDim=3; TensorSymm=; DataMeshDim=1;");
  two.Characters("/s.txt", std::string("a\0b", 3));
  write("3.h5", 2);
  Input("4.h5").Table("/x.dat", {{4, 5, 6, 7}});
  two.Table("/W?.ver", {{0}});
  const Json plan = Plan({"1.h5", "2.h5", "3.h5", "4.h5", "1.h5"}, 1);
  std::vector<std::pair<std::string, std::string>> found;
  for (const Json& disagreement : plan["disagreements"]) {
    found.emplace_back(disagreement["dataset"], disagreement["file"]);
  }
  EXPECT_THAT(found, testing::UnorderedElementsAreArray(
                         std::vector<std::pair<std::string, std::string>>{{"", "1.h5"},
                                                                          {"/V.ver", "2.h5"},
                                                                          {"/W?.ver", "2.h5"},
                                                                          {"/x.dat", "2.h5"},
                                                                          {"/x.dat", "4.h5"},
                                                                          {"/t.tdm", "2.h5"},
                                                                          {"/u.tdm", "2.h5"},
                                                                          {"/s.txt", "2.h5"}}))
      << plan["disagreements"].dump(1);
  const auto agrees = [&plan](const std::string& name) {
    for (const Json& dataset : plan["datasets"]) {
      if (dataset["name"] == name) {
        return dataset["agrees"].get<bool>();
      }
    }
    return false;
  };
  EXPECT_TRUE(agrees("/fine.dat"));
  EXPECT_FALSE(agrees("/x.dat"));
}

TEST_F(PlanTest, ValuesThatCannotBecomeNumbersAreRefused) {
  File& file = Input("1.h5");
  WriteCoef(file, "/c.coef", {{0, 1}}, Count(0, 1));
  WriteCoef(Input("2.h5"), "/c.coef", {{1, 1}}, {});
  Input("2.h5").Group("/c.coef/none.dir");
  EXPECT_GE(H5Ldelete(Input("2.h5").Id(), "/c.coef/coefs.dat", H5P_DEFAULT), 0);
  Input("2.h5").Strings("/c.coef/coefs.dat", {"a"}, {1, 1});
  const Json plan = Plan({"1.h5", "2.h5"}, 1);
  EXPECT_THAT(plan["disagreements"][0]["reason"].get<std::string>(),
              HasSubstr("holds what is no number"));
  Refuse({"1.h5", "2.h5"});
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

TEST_F(PlanTest, MistakesOnTheCommandLineHaveAStatusOfTheirOwn) {
  WriteTimes(Input("a.h5"), "/x.dat", {0, 1});
  const std::pair<Arguments, const char*> cases[] = {
      {{"-plan"}, "No file was given."},
      {{"-plan", "no.h5"}, "File no.h5 not found"},
      {{"a.h5", "-plan", "-plan"}, "Trying to define boolean option 'plan'"},
      {{"a.h5", "-plan", "-DeltaT", "x"}, "was given the value 'x'"},
      {{"a.h5", "-plan", "-DeltaT", " -1"}, "DeltaT most be non-negative."},
      {{"a.h5", "-plan", "-skip", "/y|"}, "encountered empty piece"},
      {{"a.h5", "-plan", "-check", "a.h5"}, "-check goes neither with -plan nor with -svg."},
      {{"a.h5", "-svg", "a.h5"}, "File a.h5 already exists."},
  };
  for (const auto& [arguments, text] : cases) {
    const RunResult result = Info(arguments);
    EXPECT_EQ(result.mStatus, 2) << text;
    EXPECT_EQ(result.mOutput, "");
    EXPECT_THAT(result.mErrors, HasSubstr(text));
    EXPECT_THAT(result.mErrors, HasSubstr(result.mReports));
  }
}

}  // namespace
