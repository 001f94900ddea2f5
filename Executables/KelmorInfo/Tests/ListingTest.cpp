#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <tuple>

#include "Executables/KelmorInfo/Tests/InfoFixture.hpp"
#include "Utils/HDF5/Handle.hpp"

namespace {

namespace fs = std::filesystem;
using PlainH5::File;
using testing::HasSubstr;

class ListingTest : public InfoFixture {
 protected:
  // A file that was being written when its writer stopped: its bytes are copied meanwhile.
  void WriteMarked(const std::string& name) {
    File& file = Input("source.h5");
    WriteTimes(file, "/x.dat", {0, 1});
    EXPECT_GE(H5Fflush(file.Id(), H5F_SCOPE_GLOBAL), 0);
    fs::copy_file(Path("source.h5"), Path(name));
  }
};

TEST_F(ListingTest, TellsWhatFilesHold) {
  for (const char* name : {"a.h5", "b.h5"}) {
    const double first = *name == 'a' ? 0.1 : 3;
    File& file = Input(name);
    file.Table("/R.dir/x.dat", {{first, 1, 2}, {first + 1, 1, 2}, {first - 2, 1, 2}},
               {.mCompress = true, .mLegend = {"time", "größe", "z"}});
    WriteCoef(file, "/c.coef", {{first, 2}, {first + 1, 5}}, Count(0, 5));
    WriteTdm(file, "/t.tdm", {{first, 12, 2, 2}}, Count(0, 12), sTwoDimensionalSpec);
    file.Strings("/s.txt", {"a", "b"}, {2});
    file.Version("/V.ver", 2);
  }
  Input("b.h5").Table("/empty.dat", {}, {}, 4);
  const Json json = PrintJson({"a.h5", "b.h5"});
  const Json& datasets = json["files"][0]["datasets"];
  EXPECT_EQ(datasets[0], Json::parse(R"({
    "name": "/R.dir/x.dat", "kind": "dat", "shape": [3, 3], "steps": 3, "times": [-1.9, 1.1],
    "legends": ["time", "größe", "z"], "filters": ["shuffle", "deflate 1", "fletcher32"],
    "stored_bytes": )" + datasets[0]["stored_bytes"].dump() +
                                     "}"));
  EXPECT_EQ(datasets[1]["versions"][1]["hash"], "hash1");
  EXPECT_EQ(datasets[2]["shape"], Json({5}));
  EXPECT_EQ(datasets[2]["steps"], 2);
  EXPECT_EQ(datasets[2]["legends"], Json({"t", "power"}));
  EXPECT_EQ(datasets[3]["name"], "/s.txt");
  EXPECT_EQ(datasets[3]["steps"], Json());
  EXPECT_EQ(datasets[4]["tensor"], "dimension 3, symmetry '1', mesh of dimension 2");
  EXPECT_EQ(datasets[4]["times"], Json({0.1, 0.1}));
  const Json& united = json["union"];
  EXPECT_EQ(united[0]["files"], 2);
  EXPECT_EQ(united[0]["steps"], 6);
  EXPECT_EQ(united[0]["times"], Json({-1.9, 4.0}));
  EXPECT_EQ(united[3]["files"], 1);
  EXPECT_EQ(united[3]["times"], Json());
  EXPECT_EQ(united[0]["shape"], Json({6, 3}));
  EXPECT_EQ(united[2]["shape"], Json({10}));
  EXPECT_EQ(united[0]["legends"], Json::parse(R"([["time", "größe", "z"]])"));
  EXPECT_EQ(united[0]["filters"], Json::parse(R"([["shuffle", "deflate 1", "fletcher32"]])"));
  EXPECT_EQ(united[1]["versions"], Json::array({datasets[1]["versions"]}));
  EXPECT_EQ(united[5]["tensors"], Json({"dimension 3, symmetry '1', mesh of dimension 2"}));

  H5Lcreate_external("a.h5", "R.dir", Input("c.h5").Id(), "far.dir", H5P_DEFAULT, H5P_DEFAULT);
  const Json files = PrintJson({"a.h5", "c.h5"})["files"];
  EXPECT_EQ(files[0]["external_files"], Json::array());
  EXPECT_EQ(files[1]["external_files"], Json({Path("a.h5")}));

  const std::string text = Print({"-v", "-skip", "*.coef", "a.h5", "b.h5"});
  EXPECT_THAT(text, HasSubstr("  dat  /R.dir/x.dat      3 x 3  3 steps  t = -1.9 ... 1.1  "));
  EXPECT_THAT(text, HasSubstr("shuffle+deflate 1+fletcher32  time, größe, z\n"));
  EXPECT_THAT(text, HasSubstr("hash0: help0; hash1: help1\n"));
  EXPECT_THAT(text, testing::Not(HasSubstr(".coef")));
  const std::string all = text.substr(text.find("\nall 2 files\n") + 1);
  EXPECT_THAT(all,
              HasSubstr("  dat  /R.dir/x.dat      6 x 3  in 2 files  6 steps  t = -1.9 ... 4  "));
  EXPECT_THAT(all, HasSubstr("shuffle+deflate 1+fletcher32  time, größe, z\n"));
  EXPECT_THAT(all, HasSubstr("hash0: help0; hash1: help1\n"));
}

TEST_F(ListingTest, WhatDiffersBetweenFilesStandsSideBySideInTheirUnion) {
  Input("a.h5").Table("/x.dat", {{0, 1}}, {.mCompress = true, .mLegend = {"t", "u"}});
  Input("a.h5").Version("/V.ver", 2);
  Input("b.h5").Table("/x.dat", {{1, 1, 2}}, {.mLegend = {"t", "u", "v"}});
  Input("b.h5").Version("/V.ver", 3);
  const std::string text = Print({"-v", "a.h5", "b.h5"});
  const std::string all = text.substr(text.find("\nall 2 files\n") + 1);
  EXPECT_THAT(all, HasSubstr("  ver  /V.ver  version 2 | 3  in 2 files"));
  EXPECT_THAT(all, HasSubstr("hash1: help1 | hash0: help0; hash1: help1; hash2: help2\n"));
  EXPECT_THAT(all, HasSubstr("  dat  /x.dat      2 x 2 | 3  in 2 files  2 steps  t = 0 ... 1"));
  EXPECT_THAT(all, HasSubstr("shuffle+deflate 1+fletcher32 | not compressed  t, u | t, u, v\n"));
  const Json json = PrintJson({"a.h5", "b.h5"})["union"][1];
  EXPECT_EQ(json["shape"], Json({2, nullptr}));
  EXPECT_EQ(json["legends"], Json::parse(R"([["t", "u"], ["t", "u", "v"]])"));
}

TEST_F(ListingTest, AFileThatDoesNotOpenGetsAdvice) {
  WriteMarked("left open.h5");
  fs::copy_file(Path("left open.h5"), Path("short.h5"));
  fs::resize_file(Path("short.h5"), 100);
  std::ofstream(Path("text.h5")) << "no HDF5";
  WriteTimes(Input("good.h5"), "/x.dat", {0, 1});
  const RunResult result = Info({"left open.h5", "short.h5", "good.h5", "text.h5", "good.h5"});
  EXPECT_EQ(result.mStatus, 255);
  for (const char* text : {"'h5clear -s 'left open.h5''", "The file is shorter than it says it is.",
                           "signature not found", "multiple** instances"}) {
    EXPECT_THAT(result.mOutput, HasSubstr(text));
    EXPECT_THAT(result.mReports, HasSubstr(text));
  }
  // What can be read is listed.
  EXPECT_THAT(result.mOutput, HasSubstr("  dat  /x.dat  2 x 2  2 steps  t = 0 ... 1"));
}

TEST_F(ListingTest, AFileOfWhichOnlyTheBeginningReachedTheDiskGetsAdvice) {
  {
    const Vexa_H5::PropertyListHandle access(H5Pcreate(H5P_FILE_ACCESS));
    EXPECT_GE(H5Pset_libver_bounds(access, H5F_LIBVER_V18, H5F_LIBVER_V18), 0);
    const Vexa_H5::Handle<H5Fclose> file(
        H5Fcreate(Path("a.h5").c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access));
    EXPECT_GE(file, 0);
  }
  const auto size = fs::file_size(Path("a.h5"));
  constexpr std::uintmax_t superblock = 48;
  fs::resize_file(Path("a.h5"), superblock);
  EXPECT_THAT(Info({"a.h5"}).mOutput, HasSubstr("'h5clear --increment=0 a.h5' makes it that long"));
  fs::resize_file(Path("a.h5"), size);
  const std::string advice = "h5clear cannot bring it back";
  EXPECT_THAT(Info({"a.h5"}).mOutput, HasSubstr(advice));
  EXPECT_THAT(Print({"-plan", "a.h5"}, 1), HasSubstr(advice));
}

TEST_F(ListingTest, OutputThatGoesNowhereIsAFailure) {
  WriteTimes(Input("a.h5"), "/x.dat", {0, 1});
  CloseInputs();
  fs::copy_file(Path("a.h5"), Path("b.h5"));
  for (const char* mode : {"", "-json", "-plan", "-plan -json", "-check b.h5"}) {
    const std::string run = std::string(KELMORINFO_PROGRAM) + " " + mode + " a.h5 >/dev/full";
    const RunResult result = Run("/bin/sh", {"-c", run});
    EXPECT_EQ(result.mStatus, 255) << mode;
    EXPECT_THAT(result.mReports, HasSubstr("standard output"));
  }
}

TEST_F(ListingTest, MistakesOnTheCommandLineHaveReports) {
  WriteTimes(Input("a.h5"), "/x.dat", {0, 1});
  // A plan has status 1 for itself.
  const std::tuple<int, Arguments, const char*> cases[] = {
      {255, {}, "No file was given."},
      {255, {"no.h5"}, "File no.h5 not found"},
      {255, {"-typo", "1", "a.h5"}, "Option-key 'typo' was not used."},
      {255, {"-DeltaT", "1", "a.h5"}, "Option '-DeltaT' means nothing without -plan or -check."},
      {255, {"-check", "a.h5", "-json", "a.h5"}, "Option '-json' means nothing with -check."},
      {255, {"-check", "no.h5", "a.h5"}, "File no.h5 not found"},
      {2, {"-plan"}, "No file was given."},
      {2, {"a.h5", "-plan", "-plan"}, "Trying to define boolean option 'plan'"},
      {2, {"a.h5", "-plan", "-DeltaT", " -1"}, "DeltaT most be non-negative."},
      {2, {"a.h5", "-plan", "-skip", "/y|"}, "encountered empty piece"},
      {2, {"a.h5", "-plan", "-check", "a.h5"}, "-check goes neither with -plan nor with -svg."},
      {2, {"a.h5", "-svg", "a.h5"}, "File a.h5 already exists."},
  };
  for (const auto& [status, arguments, text] : cases) {
    const RunResult result = Info(arguments);
    EXPECT_EQ(result.mStatus, status) << text;
    EXPECT_EQ(result.mOutput, "");
    EXPECT_THAT(result.mErrors, HasSubstr(text));
    EXPECT_THAT(result.mErrors, HasSubstr(result.mReports));
  }
  EXPECT_THAT(Print({"-plan", "-h"}),
              HasSubstr("\nUsage:  KelmorInfo [options] file [file ...]\n"));
}

}  // namespace
