#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cmath>
#include <filesystem>

#include "Executables/KelmorInfo/Tests/InfoFixture.hpp"

namespace {

namespace fs = std::filesystem;
using PlainH5::File;
using PlainH5::Rows;
using testing::HasSubstr;

const Strings sTables = {"/A.dir/x.dat",     "/c.coef/index.dat", "/c.coef/coefs.dat",
                         "/t.tdm/index.dat", "/t.tdm/data.dat",   "/empty.dat"};

class ViewTest : public InfoFixture {
 protected:
  // "%d" would stand for another name if a view did not say otherwise.
  void WriteInputs(const std::string& folder = "run%d/") {
    fs::create_directories(Path(folder));
    for (int k = 0; k < 3; ++k) {
      File& file = Input(folder + std::to_string(k) + ".h5");
      const double t = 2.5 * k;
      WriteTimes(file, "/A.dir/x.dat", {t, t + 1, t + 2, t + 3}, k);
      WriteCoef(file, "/c.coef", {{t, 2}, {t + 1, 2}, {t + 3, 7}}, Count(10 * k, 7));
      WriteTdm(file, "/t.tdm", {{t, 12, 2, 2}, {t + 3, 15, 1, 1}}, Count(10 * k, 15));
      file.Strings("/s.txt", {"text", std::to_string(k)}, {2});
      file.Table("/empty.dat", {}, {}, 3);
      file.Version("/V.ver", 2);
    }
  }
  std::string View(const Arguments& files, const std::string& view = "view.h5") {
    Arguments arguments = {"-view", view};
    arguments.insert(arguments.end(), files.begin(), files.end());
    return Print(arguments);
  }
  // Expects that plain HDF5 reads the same from both.
  void ExpectSame(const std::string& view, const std::string& joined) {
    const File there = File::Open(Path(view));
    const File here = File::Open(Path(joined));
    for (const std::string& table : sTables) {
      EXPECT_EQ(there.ReadTable(table), here.ReadTable(table)) << table;
      EXPECT_EQ(there.ReadStringAttribute(table, "Legend"),
                here.ReadStringAttribute(table, "Legend"));
    }
    EXPECT_EQ(there.ReadStringAttribute("/t.tdm", "TensorSpec"),
              here.ReadStringAttribute("/t.tdm", "TensorSpec"));
    EXPECT_EQ(there.ReadStrings("/s.txt"), here.ReadStrings("/s.txt"));
    EXPECT_EQ(there.ReadStrings("/V.ver"), here.ReadStrings("/V.ver"));
  }

  const Arguments mFiles = {"run%d/0.h5", "run%d/1.h5", "run%d/2.h5"};
};

TEST_F(ViewTest, ReadsLikeTheJoinWhereverAllIsMoved) {
  WriteInputs();
  Join(mFiles);
  fs::create_directory(Path("views"));
  fs::create_directory_symlink("views", Path("link"));
  EXPECT_EQ(View(mFiles, "link/v.h5"),
            "link/v.h5 is a view of 3 files: 6 datasets, 835 bytes as if joined\n");
  ExpectSame("views/v.h5", "out.h5");
  EXPECT_EQ(PlainH5::Bytes(Path("views/v.h5"))[8], 2);  // the superblock's version
  EXPECT_THAT(Print({"-check", "views/v.h5", mFiles[0], mFiles[1], mFiles[2]}),
              HasSubstr("views/v.h5 is a view of 3 files: 6 datasets, "));
  fs::create_directory(Path("moved"));
  fs::rename(Path("views"), Path("moved/views"));
  fs::rename(Path("run%d"), Path("moved/run%d"));
  ExpectSame("moved/views/v.h5", "out.h5");
}

TEST_F(ViewTest, AMissingSegmentReadsAsNaNAndIsNamed) {
  WriteInputs();
  View(mFiles);
  Join(mFiles);
  const auto timesIn = [this](const char* file) {
    Json times;
    const Json listing = PrintJson({file});
    for (const Json& dataset : listing["files"][0]["datasets"]) {
      times[dataset["name"]] = dataset["times"];
    }
    return times;
  };
  EXPECT_EQ(timesIn("view.h5"), timesIn("out.h5"));
  EXPECT_THAT(Print({"view.h5"}), HasSubstr("  a view of 3 files\n"));
  fs::remove(Path(mFiles[1]));
  ASSERT_EQ(mkfifo(Path(mFiles[1]).c_str(), 0600), 0);  // opening it would hang
  const RunResult result = Info({"view.h5"});
  EXPECT_EQ(result.mStatus, 255);
  EXPECT_THAT(result.mOutput, HasSubstr("    run%d/1.h5  CANNOT BE OPENED"));
  fs::remove(Path(mFiles[1]));
  // One that opens, but has fewer rows than the view names; times are told as far as there are any.
  WriteTimes(Input(mFiles[1]), "/A.dir/x.dat", {3});
  const RunResult shorter = Info({"view.h5"});
  EXPECT_THAT(shorter.mOutput, HasSubstr("  10 steps  t = 0 ... "));
  EXPECT_THAT(shorter.mOutput, HasSubstr("    run%d/1.h5  CANNOT BE OPENED, its rows read as NaN: "
                                         "/A.dir/x.dat has 1 row, not "));
  CloseInputs();
  fs::remove(Path(mFiles[1]));
  const Rows rows = File::Open(Path("view.h5")).ReadTable("/A.dir/x.dat");
  ASSERT_EQ(rows.size(), 10U);
  EXPECT_EQ(rows[2][0], 2);
  EXPECT_TRUE(std::isnan(rows[3][0]));
}

TEST_F(ViewTest, ACheckProvesWhatRowsAreMappedToWithoutOpeningThem) {
  WriteInputs();
  WriteInputs("copy/");
  const auto check = [&](Arguments files) {
    files.insert(files.begin(), {"-check", "view.h5"});
    return Print(files, 1);
  };
  View(mFiles);
  EXPECT_THAT(check({mFiles[0], "copy/1.h5", mFiles[2]}),
              HasSubstr("/A.dir/x.dat: the file of mapping 1 is " + Path("run%d/1.h5") +
                        " in view.h5, but should be " + Path("copy/1.h5")));
  // The same number of rows of the same files, but others of them.
  CloseInputs();
  const Rows rows = {{0, 0}, {3, 1}, {2, 2}, {3, 3}};
  fs::remove(Path("view.h5"));
  Input("one.h5").Table("/x.dat", rows, {.mChunk = {4, 1}});
  View({"-NoWipe", "one.h5"});
  EXPECT_THAT(check({"one.h5"}), HasSubstr("/x.dat: the number of steps is 4 in view.h5"));
  fs::remove(Path("view.h5"));
  View({"one.h5"});
  Input("one.h5").Table("/x.dat", {{0, 0}, {1, 1}, {1, 2}, {3, 3}}, {.mChunk = {4, 1}});
  Print({"-check", "view.h5", "one.h5"});
  Input("one.h5").Table("/x.dat", {{1, 0}, {1, 1}, {2, 2}, {3, 3}}, {.mChunk = {4, 1}});
  EXPECT_THAT(check({"one.h5"}), HasSubstr("/x.dat: the number of mappings is 2 in view.h5"));
}

TEST_F(ViewTest, RefusesAndLeavesNothing) {
  WriteInputs();
  View(mFiles);
  const std::string before = PlainH5::Bytes(Path("view.h5"));
  Rows pairs;  // of which the second is kept
  for (int i = 0; i < 20002; ++i) {
    pairs.push_back({std::floor(i / 2)});
  }
  Input("many.h5").Table("/x.dat", pairs, {.mChunk = {20002, 1}});
  Input("other.h5").Table("/A.dir/x.dat", {{0, 1, 2}}, {.mChunk = {1, 1}});
  const std::pair<Arguments, const char*> cases[] = {
      {{"-view", "view.h5", "many.h5"}, "Cowardly refusing to write into it"},
      {{"-view", "new.h5", "view.h5"}, "Name its segments instead"},
      {{"-view", "new.h5", "many.h5"}, "10001 runs of rows are kept"},
      {{"-view", "new.h5", mFiles[0], "other.h5"}, "has different number of columns"},
      {{"-view", "new.h5", "-plan", "many.h5"}, "-view goes with none of"},
      {{"-view", "new.h5", "-json", "many.h5"}, "means nothing with -view"}};
  for (const auto& [arguments, message] : cases) {
    const RunResult result = Info(arguments);
    EXPECT_NE(result.mStatus, 0) << message;
    EXPECT_THAT(result.mErrors, HasSubstr(message));
    EXPECT_FALSE(fs::exists(Path("new.h5"))) << message;
  }
  EXPECT_EQ(PlainH5::Bytes(Path("view.h5")), before);
  EXPECT_THAT(Run({"-o", "joined.h5", "view.h5"}).mErrors, HasSubstr("Name its segments instead"));
  EXPECT_THAT(Print({"-plan", "view.h5"}, 1), HasSubstr("Name its segments instead"));
}

}  // namespace
