// What runs of the tool are compared with here is told or counted; what they join is compared with
// an independent join in Stress/.
#include <gmock/gmock.h>

#include <filesystem>
#include <regex>

#include "Executables/Kelmor/Tests/KelmorFixture.hpp"
#include "Executables/Series/Inputs.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"

namespace {

using PlainH5::File;
using testing::HasSubstr;

class JoinTest : public KelmorFixture {};

// Its columns would come from two files.
TEST_F(JoinTest, FilesThatChangeWhileTheyAreReadAreNoticed) {
  std::vector<std::string> names;
  for (int i = 0; i < 40; ++i) {
    WriteTimes(Input(std::to_string(i)), "/x.dat", {0, 1, 2});
    names.push_back(Path(std::to_string(i)));
  }
  for (const char* name : {"other", "far"}) {
    WriteTimes(Input(name), "/x.dat", {0, 1, 2});
  }
  H5Lcreate_external("far", "x.dat", Input("0").Id(), "y.dat", H5P_DEFAULT, H5P_DEFAULT);
  CloseInputs();
  Inputs inputs{MyVector<std::string>(names)};
  const auto read = [&inputs] {
    inputs.Visit<H5_Objects::Dat>(39, "/x.dat", [](const auto& dat) { dat.RetrieveTimes(); });
  };
  EXPECT_EQ(PlainH5::ReportOf(read), "");
  std::filesystem::rename(Path("other"), names.back());
  EXPECT_THAT(PlainH5::ReportOf(read), HasSubstr("The file has changed since"));
  std::filesystem::last_write_time(names[1], {});
  inputs.Visit<H5_Objects::Dat>(0, "/y.dat", [](const auto& dat) { dat.RetrieveTimes(); });
  std::filesystem::resize_file(Path("far"), 100);
  EXPECT_THAT(PlainH5::ReportOf([&inputs] { inputs.RequireUnchanged(); }),
              HasSubstr("\n" + names[1] + "\n" + names.back() + "\n" + Path("far") + "\n"));
}

TEST_F(JoinTest, FilesThatDisagreeAreToldTogether) {
  Arguments arguments = {"-o", "out.h5"};
  for (const std::string name : {"a.h5", "b.h5", "c.h5", "d.h5", "e.h5", "f.h5", "g.h5", "h.h5"}) {
    arguments.push_back(name);
    Input(name).Table("/x.dat", {std::vector<double>(name == "c.h5" ? 3 : 2)});
  }
  EXPECT_THAT(Run(arguments).mReports,
              HasSubstr("in different files.\n2 columns in " + Path("a.h5") + ", " + Path("b.h5") +
                        ", " + Path("d.h5") + " and 4 more\n3 columns in " + Path("c.h5") +
                        "\nObject '/x.dat' of file '" + Path("c.h5")));
}

TEST_F(JoinTest, AVerboseRunTellsEveryStage) {
  File& first = Input("1.h5");
  WriteTimes(first, "/b.dat", {0, 1, 2, 3});
  WriteTimes(first, "/Run.dir/z.dat", {0, 0.25, -5});
  WriteCoef(first, "/c.coef", {{0, 2}, {1, 2}, {2, 5}}, Count(0, 5));
  WriteTdm(first, "/t.tdm", {{0, 3, 1}, {1, 6, 1}}, Count(0, 6));
  first.Strings("/log.txt", {"a", "b"}, {2});
  first.Version("/VersionHist.ver", 3);
  File& second = Input("2.h5");
  WriteTimes(second, "/a.dat", {1});
  WriteTimes(second, "/b.dat", {2.5, 3.5});
  WriteTdm(second, "/t.tdm", {{1, 3, 1}}, Count(6, 3));
  second.Strings("/log.txt", {"cde"}, {}, H5T_CSET_UTF8);
  // The lines that tell sizes of the cache differ.
  const std::regex sizes("CachedH5FileHolder holds .*\n");
  EXPECT_EQ(std::regex_replace(Join({"-v", "1.h5", "2.h5"}), sizes, ""),
            "opening 2 input files\n"
            "found 3 dat-datasets\n"
            "found 1 coef-datasets\n"
            "found 1 tdm-datasets\n"
            "found 1 txt-datasets\n"
            "found 1 ver-datasets\n"
            "/VersionHist.ver writing version 3\n"
            "/Run.dir/z.dat keeping 1 steps out of 3, maximum time-gap is 5\n"
            "/b.dat keeping 5 steps out of 6, maximum time-gap is 1\n"
            "/a.dat keeping 1 steps out of 1, maximum time-gap is 0\n"
            "/c.coef keeping 3 steps out of 3, maximum time-gap is 1\n"
            "working on /t.tdm\n"
            "    trigger output after 2 segments\n"
            "/t.tdm keeping 2 steps out of 3, maximum time-gap is 1\n"
            "all Tdm sets joined and written\n"
            "/log.txt writing 5 characters.\n"
            "all data processed, starting cleanup\n"
            "clearing input H5-Files\n"
            "purging H5-caches though PurgeCache()\n"
            "H5-caches purged.\n"
            "exit\n");
  // The stage of tensors ends even if there were none.
  EXPECT_THAT(Join({"-v", "-skip", "*.tdm", "1.h5"}), HasSubstr("all Tdm sets joined and written"));
}

TEST_F(JoinTest, SegmentsOfTensorsEndWhereTheyExceedTheCache) {
  const std::string spec = "TensorDim=3; TensorSymm=; DataMeshDim=1;";
  WriteTdm(Input("1.h5"), "/t.tdm", {{0, 63, 63}, {2, 153, 90}}, Count(0, 153), spec);
  WriteTdm(Input("2.h5"), "/t.tdm", {{1.5, 0, 0}, {3, 90, 90}, {4, 210, 120}}, Count(0, 210), spec);
  WriteTdm(Input("3.h5"), "/t.tdm", {{3.5, 90, 90}}, Count(0, 90), spec);
  WriteTdm(Input("4.h5"), "/t.tdm", {{5, 60, 60}}, Count(0, 60), spec);
  // Kept are 63, 90, 90 and 60 values; the limit is an eighth of the cache.
  const std::pair<const char*, const char*> cases[] = {
      {"1224", "after 3 segments\n/.*\n    trigger output after 4 segments\n"},
      {"1223", "after 2 segments\n/.*\n    trigger output after 4 segments\n"},
  };
  for (const auto& [cacheSize, expected] : cases) {
    const std::string output =
        Join({"-v", "-cachesize", cacheSize, "1.h5", "2.h5", "3.h5", "4.h5"});
    EXPECT_TRUE(
        std::regex_search(output, std::regex(std::string("t.tdm\n    trigger output ") + expected)))
        << output;
  }
}

}  // namespace
