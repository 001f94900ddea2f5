#include <gmock/gmock.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <tuple>

#include "Executables/KelmorInfo/Tests/InfoFixture.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/Process/Version.hpp"

namespace {

namespace fs = std::filesystem;
using PlainH5::File;
using testing::HasSubstr;

class ListingTest : public InfoFixture {};

TEST_F(ListingTest, TellsWhatFilesHold) {
  for (const char* name : {"a.h5", "b.h5"}) {
    const double first = *name == 'a' ? 0.1 : 3;
    File& file = Input(name);
    file.Table("/R.dir/x.dat", {{first, 1, 2}, {first + 1, 1, 2}, {first - 2, 1, 2}},
               {.mCompress = true, .mLegend = {"time", "größe", "z"}});
    WriteCoef(file, "/c.coef", {{first, 2}, {first + 1, 5}}, Count(0, 5));
    WriteTdm(file, "/t.tdm", {{first, 12, 2, 2}}, Count(0, 12));
    file.Strings("/s.txt", {"a", "b"}, {2});
    file.Version("/V.ver", 2);
  }
  Json json = PrintJson({"a.h5", "b.h5"});
  EXPECT_EQ(json["files"][1]["datasets"][4]["times"], Json({{"from", 3.0}, {"to", 3.0}}));
  Json found = Json::array();  // but for what is null or empty
  for (const Json& dataset : json["union"]) {
    EXPECT_GT(dataset["stored_bytes"], 0);
    Json& facts = found.emplace_back();
    for (const auto& [key, value] : dataset.items()) {
      if (key != "stored_bytes" && !value.empty()) {
        facts[key] = value;
      }
    }
  }
  EXPECT_EQ(found, Json::parse(R"([
    {"name": "/R.dir/x.dat", "kind": "dat", "file_count": 2, "shape": [6, 3], "steps": 6,
     "times": {"from": -1.9, "to": 4.0}, "legends": [["time", "größe", "z"]],
     "filter_lists": [["shuffle", "deflate 1", "fletcher32"]]},
    {"name": "/V.ver", "kind": "ver", "file_count": 2, "filter_lists": [[]],
     "histories": [[{"hash": "hash0", "text": "help0"}, {"hash": "hash1", "text": "help1"}]]},
    {"name": "/c.coef", "kind": "coef", "file_count": 2, "shape": [10], "steps": 4,
     "times": {"from": 0.1, "to": 4.0}, "legends": [["t", "power"]], "filter_lists": [[]]},
    {"name": "/s.txt", "kind": "txt", "file_count": 2, "shape": [4], "filter_lists": [[]]},
    {"name": "/t.tdm", "kind": "tdm", "file_count": 2, "shape": [24], "steps": 2,
     "times": {"from": 0.1, "to": 3.0}, "legends": [["t", "shift"]], "filter_lists": [[]],
     "tensors": [{"dimension": 3, "symmetry": "1", "mesh_dimension": 2}]}])"));

  H5Lcreate_external("a.h5", "R.dir", Input("c.h5").Id(), "far.dir", H5P_DEFAULT, H5P_DEFAULT);
  const Json files = PrintJson({"a.h5", "c.h5"})["files"];
  EXPECT_EQ(files[1]["external_files"][0]["name"], Path("a.h5"));
  EXPECT_EQ(PrintJson({"-plan", "c.h5"})["external_files"][0]["name"], Path("a.h5"));

  EXPECT_THAT(Print({"-skip", "*.coef", "a.h5"}),
              testing::AllOf(HasSubstr("2 strings"), testing::Not(HasSubstr(".coef"))));
}

TEST_F(ListingTest, WhatDiffersBetweenFilesStandsSideBySideInTheirUnion) {
  Input("a.h5").Table("/x.dat", {{0, 1}}, {.mCompress = true, .mLegend = {"t", "u"}});
  Input("a.h5").Version("/V.ver", 2);
  Input("b.h5").Table("/x.dat", {{1, 1, 2}, {NAN, 1, 2}}, {.mLegend = {"t", "u", "v"}});
  Input("b.h5").Version("/V.ver", 3);
  const std::string all = Print({"-v", "a.h5", "b.h5"});
  EXPECT_THAT(all, HasSubstr("  ver  /V.ver  version 2 | 3  in 2 files"));
  EXPECT_THAT(all, HasSubstr("hash1: help1 | hash0: help0; hash1: help1; hash2: help2\n"));
  EXPECT_THAT(all, HasSubstr("  dat  /x.dat      3 x 2 | 3  in 2 files  3 steps  t = 0 ... 1"));
  EXPECT_THAT(all, HasSubstr("shuffle+deflate 1+fletcher32 | not compressed  t, u | t, u, v\n"));
  EXPECT_EQ(PrintJson({"a.h5", "b.h5"})["union"][1]["shape"], Json({3, nullptr}));
}

TEST_F(ListingTest, AFileThatDoesNotOpenGetsAdvice) {
  // The bytes of a file that is being written are those that its writer leaves when it stops.
  File& file = Input("good.h5");
  WriteTimes(file, "/x.dat", {0, 1});
  EXPECT_GE(H5Fflush(file.Id(), H5F_SCOPE_GLOBAL), 0);
  fs::copy_file(Path("good.h5"), Path("left open.h5"));
  CloseInputs();
  for (const char* name : {"short.h5", "root.h5"}) {
    fs::copy_file(Path("good.h5"), Path(name));
    fs::resize_file(Path(name), 48);
  }
  fs::resize_file(Path("root.h5"), fs::file_size(Path("good.h5")));
  std::ofstream(Path("text.h5")) << "no HDF5";
  const RunResult result =
      Info({"left open.h5", "short.h5", "root.h5", "good.h5", "text.h5", "./good.h5", "no.h5"});
  EXPECT_EQ(result.mStatus, 255);
  for (const char* text : {"'h5clear -s 'left open.h5''", "The file is shorter than it says it is.",
                           "h5clear cannot bring it back", "signature not found",
                           "given twice, before as good.h5", "The file is not found"}) {
    EXPECT_THAT(result.mOutput, HasSubstr(text));
    EXPECT_THAT(result.mReports, HasSubstr(text));
  }
  // What can be read is listed.
  EXPECT_THAT(result.mOutput, HasSubstr("  dat  /x.dat  2 x 2  2 steps  t = 0 ... 1"));
}

TEST_F(ListingTest, OutputThatGoesNowhereIsAFailure) {
  WriteTimes(Input("a.h5"), "/x.dat", {0, 1});
  CloseInputs();
  fs::copy_file(Path("a.h5"), Path("b.h5"));
  for (const char* mode : {"", "-json", "-plan", "-plan -json", "-check b.h5"}) {
    const std::string run = std::string(KELMORINFO_PROGRAM) + " " + mode + " a.h5 >/dev/full";
    const RunResult result = Run({"-c", run}, "/bin/sh");
    EXPECT_EQ(result.mStatus, 255) << mode;
    EXPECT_THAT(result.mReports, HasSubstr("standard output"));
  }
}

TEST_F(ListingTest, MistakesOnTheCommandLineHaveReports) {
  WriteTimes(Input("a.h5"), "/x.dat", {0, 1});
  Input("b.h5").Table("/x.dat", {{1, 2, 3}});
  WriteTimes(Input("c.h5"), "/x.dat", {0, 1});
  const std::pair<Arguments, const char*> cases[] = {
      {{}, "No file was given."},
      {{"-plan", "no.h5"}, "File no.h5 not found"},
      {{"-DeltaT", "1", "a.h5"},
       "Option '-DeltaT' means nothing without -plan, -check, -view or -show."},
      {{"a.h5", "-plan", "-plan"}, "Trying to define boolean option 'plan' for a second time."},
      {{"a.h5", "-plan", "-check", "a.h5"}, "-check goes with none of -plan, -draw and -svg."},
      {{"-check", "./a.h5", "b.h5", "a.h5"},
       "File ./a.h5 is given twice, to be checked and as one "
       "of its inputs."},
      {{"-skip", "(a|b", "a.h5"},
       "GlobMatches encountered |, but found only 1 piece. Are there "
       "unmatched parentheses in the glob='(a|b'?"},
  };
  for (const auto& [arguments, text] : cases) {
    const RunResult result = Info(arguments);
    EXPECT_EQ(result.mStatus, 2) << text;
    EXPECT_EQ(result.mOutput + result.mReports, "");
    const std::string message = "KelmorInfo: " + std::string(text);
    EXPECT_THAT(result.mErrors, testing::StartsWith(message + "\nUsage:  KelmorInfo [options] f"));
    EXPECT_THAT(result.mErrors, testing::EndsWith("-show dataset [options] file [file ...]\n"));
  }
  const RunResult differing = Info({"-check", "a.h5", "b.h5", "c.h5"});
  EXPECT_EQ(differing.mStatus, 255);
  EXPECT_THAT(differing.mReports, HasSubstr("different number of columns"));
  EXPECT_THAT(Print({"--nothing", "--help"}),
              testing::StartsWith("\nUsage:  KelmorInfo [options]"));
  EXPECT_EQ(Print({"-plan", "no.h5", "--version"}), "KelmorInfo " VEXA_VERSION "\n");
  EXPECT_EQ(Info({"--", "--help"}).mStatus, 255) << "a file";
}

}  // namespace
