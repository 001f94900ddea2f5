#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <utility>

#include "Executables/KelmorInfo/Tests/InfoFixture.hpp"

namespace {

namespace fs = std::filesystem;
using PlainH5::File;
using PlainH5::Rows;
using testing::HasSubstr;

class CheckTest : public InfoFixture {
 protected:
  void WriteInputs() {
    for (int k = 0; k < 3; ++k) {
      File& file = Input(std::to_string(k) + ".h5");
      const double t = 2.5 * k;
      WriteTimes(file, "/A.dir/x.dat", {t, t + 1, t + 2, t + 3}, k);
      WriteCoef(file, "/c.coef", {{t, 2}, {t + 1, 2}, {t + 3, 7}}, Count(10 * k, 7));
      WriteTdm(file, "/t.tdm", {{t, 12, 2, 2}, {t + 3, 15, 1, 1}}, Count(10 * k, 15));
      file.Strings("/s.txt", {"text", std::to_string(k)}, {2});
      file.Strings("/empty.txt", {""}, {1});
      file.Table("/empty.dat", {}, {}, 3);
      file.Version("/V.ver", 2);
    }
  }
};

using Change = std::function<void(File&)>;

Change Remove(const std::string& path) {
  return [=](File& file) { EXPECT_GE(H5Ldelete(file.Id(), path.c_str(), H5P_DEFAULT), 0); };
}

Change Copy(const char* from, const char* to) {
  return [=](File& file) {
    EXPECT_GE(H5Ocopy(file.Id(), from, file.Id(), to, H5P_DEFAULT, H5P_DEFAULT), 0);
  };
}

// One number of a table replaced.
Change Set(const std::string& table, std::size_t row, std::size_t column, double value) {
  return [=](File& file) {
    Rows rows = file.ReadTable(table);
    rows[row][column] = value;
    const Strings legend = file.ReadStringAttribute(table, "Legend");
    Remove(table)(file);
    file.Table(table, rows, {.mLegend = legend});
  };
}

Change SetText(const std::string& text) {
  return [=](File& file) {
    Remove("/s.txt")(file);
    file.Strings("/s.txt", {text}, {1});
  };
}

TEST_F(CheckTest, TheFirstDifferenceOfEachDatasetIsTold) {
  WriteInputs();
  Join({"0.h5", "1.h5", "2.h5"});
  fs::rename(Path("out.h5"), Path("joined.h5"));
  const std::pair<Change, const char*> cases[] = {
      {Set("/A.dir/x.dat", 4, 1, 102.5),
       "/A.dir/x.dat differs in column 1 (value): row 4 of out.h5 has 102.5, "
       "step 1 (t = 3.5) of 1.h5 has 101\n"},
      {Set("/A.dir/x.dat", 0, 0, -0.0), "row 0 of out.h5 has -0, step 0 (t = 0) of 0.h5 has 0\n"},
      {Set("/c.coef/coefs.dat", 3, 0, -1),
       "/c.coef differs: row 3 of out.h5 has -1, value 1 of step 0 (t = 2.5) of 1.h5 has 11\n"},
      {Set("/c.coef/index.dat", 0, 0, -0.0), "/c.coef: the time of step 0 is -0 in out.h5"},
      {[](File& file) {
         Set("/t.tdm/index.dat", 0, 2, 4)(file);
         Set("/t.tdm/index.dat", 0, 3, 1)(file);
       },
       "/t.tdm: the extent 0 of the mesh of step 0 is 4 in out.h5, but should be 2\n"},
      {[](File& file) {
         H5Adelete_by_name(file.Id(), "/A.dir/x.dat", "Legend", H5P_DEFAULT);
         file.StringAttribute("/A.dir/x.dat", "Legend", {"time", "other"});
       },
       "/A.dir/x.dat: the legend is (time,other) in out.h5, but should be (time,value)\n"},
      {[](File& file) {
         Remove("/V.ver")(file);
         file.Version("/V.ver", 2, "other");
       },
       "/V.ver: the text of entry 0 is other0 in out.h5, but should be help0\n"},
      {SetText("text0texX1text2"),
       "/s.txt differs at character 8 of out.h5, which is character 3 of 1.h5\n"},
      {SetText("text0text1text2+"),
       "/s.txt: the length of the text is 16 in out.h5, but should be 15\n"},
      {Remove("/empty.dat"), "/empty.dat is in 0.h5, but not in out.h5\n"},
      {Copy("/s.txt", "/more.txt"), "/more.txt is in out.h5, but not among what is joined\n"},
      {Copy("/s.txt", "/empty.txt"), "/empty.txt is in out.h5, but all inputs of it are empty\n"},
      {[](File& file) {
         file.Group("/B.dir");
         file.StringAttribute("/B.dir", "note", {"new"});
       },
       "/B.dir is an empty group in out.h5\n"},
      {[](File& file) { file.StringAttribute("/A.dir", "note", {"new"}); },
       "/A.dir of out.h5 has what no join writes: attribute 'note'\n"},
      {[](File& file) { file.StringAttribute("/t.tdm/index.dat", "units", {"s"}); },
       "/t.tdm of out.h5 has what no join writes: attribute 'units' of index.dat\n"},
      {Copy("/s.txt", "/c.coef/more"), "/c.coef of out.h5 has what no join writes: member 'more'"},
      {[](File& file) { H5Adelete_by_name(file.Id(), "/empty.dat", "Legend", H5P_DEFAULT); },
       "/empty.dat of out.h5 lacks what every join writes: attribute 'Legend'\n"},
      // What is not as it must be for its kind.
      {[](File& file) {
         Remove("/A.dir/x.dat")(file);
         file.Table("/A.dir/x.dat", {{1, 2, 3}}, {.mLegend = {"time", "value"}});
       },
       "/A.dir/x.dat cannot be read from out.h5: "},
      {Set("/c.coef/index.dat", 2, 1, 100), "/c.coef cannot be read from out.h5: "},
      {[](File& file) {
         Remove("/A.dir/x.dat")(file);
         file.Group("/A.dir/x.dat");
       },
       "/A.dir/x.dat cannot be read from out.h5: "},
      {Copy("/s.txt", "/notes"), "out.h5 cannot be read: "},
  };
  for (const auto& [change, text] : cases) {
    fs::remove(Path("out.h5"));
    fs::copy_file(Path("joined.h5"), Path("out.h5"));
    {
      File file = File::Open(Path("out.h5"), H5F_ACC_RDWR);
      change(file);
    }
    EXPECT_THAT(
        Print({"-check", "out.h5", "0.h5", "1.h5", "2.h5"}, 1),
        testing::AllOf(HasSubstr(text), HasSubstr("\nout.h5 is not the join of 3 files: 1 "
                                                  "dataset or group differs; the same are ")));
  }
  EXPECT_THAT(Print({"-check", "joined.h5", "-NoWipe", "0.h5", "1.h5", "2.h5"}, 1),
              HasSubstr("/A.dir/x.dat: the number of steps is 10 in joined.h5, but should be 12"));
}

TEST_F(CheckTest, GoesOnAfterADifference) {
  WriteInputs();
  Join({"0.h5", "1.h5", "2.h5"});
  {
    File file = File::Open(Path("out.h5"), H5F_ACC_RDWR);
    Set("/A.dir/x.dat", 4, 1, 102.5)(file);
    Set("/c.coef/index.dat", 2, 1, 100)(file);
    SetText("other")(file);
  }
  const Json json = PrintJson({"-check", "out.h5", "0.h5", "1.h5", "2.h5"}, 1);
  Strings names;
  for (const Json& difference : json["differences"]) {
    names.push_back(difference["name"]);
  }
  EXPECT_EQ(names, Strings({"/A.dir/x.dat", "/c.coef", "/s.txt"}));
  EXPECT_EQ(json["difference_count"], 3);
  // The others are compared as in a right join.
  EXPECT_EQ(json["dataset_count"], 4);
  EXPECT_EQ(json["steps"], 4);
}

TEST_F(CheckTest, DamageIsADifferenceUnlessTheInputsHaveIt) {
  for (const char* name : {"a.h5", "b.h5"}) {
    Input(name).Table("/x.dat", Rows(400, {1, 2}), {.mChunk = {400, 1}, .mCompress = true});
  }
  CloseInputs();
  Join({"-NoWipe", "a.h5"});
  DamageChunk("out.h5", "/x.dat", 0, 1);
  EXPECT_THAT(Print({"-check", "out.h5", "-NoWipe", "b.h5"}, 1),
              testing::StartsWith("/x.dat cannot be read from out.h5: "));
  fs::remove(Path("out.h5"));
  Join({"-NoWipe", "b.h5"});
  DamageChunk("b.h5", "/x.dat", 0, 1);
  const RunResult result = Info({"-check", "out.h5", "-NoWipe", "b.h5"});
  EXPECT_EQ(result.mStatus, 255);
  EXPECT_THAT(result.mReports, HasSubstr("b.h5"));
}

}  // namespace
