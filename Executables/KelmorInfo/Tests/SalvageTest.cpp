#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "Executables/KelmorInfo/Tests/InfoFixture.hpp"

namespace {

namespace fs = std::filesystem;
using PlainH5::File;
using PlainH5::Rows;
using testing::HasSubstr;

class SalvageTest : public InfoFixture {
 protected:
  // A file with a chunk of five rows in each of these tables.
  void WriteInput() {
    const PlainH5::TableOptions options = {.mChunk = {5, 1}, .mCompress = true};
    File& file = Input("whole.h5");
    Rows rows, index;
    for (int i = 0; i < 20; ++i) {
      rows.push_back({0.5 * i, 100. + i});
      index.push_back({0.5 * i, 2. * i + 2});
    }
    file.Table("/x.dat", rows, options);
    file.Table("/c.coef/index.dat", index, options);
    file.Table("/c.coef/coefs.dat", Count(7, 40), options);
    file.Table("/zero.dat", {{0, 0}}, options);
    file.Strings("/s.txt", Strings(40, "line"), {40});
    file.Version("/V.ver", 1);
  }
  // Copies it, and damages the chunk that begins at that row.
  void Damage(const std::string& table, hsize_t row, hsize_t column) {
    CloseInputs();
    fs::copy_file(Path("whole.h5"), Path("broken.h5"), fs::copy_options::overwrite_existing);
    DamageChunk("broken.h5", table, row, column);
  }
};

TEST_F(SalvageTest, WritesTheStepsBeforeTheFirstThatCannotBeRead) {
  WriteInput();
  const struct {
    const char* mTable;
    hsize_t mRow, mColumn;
    std::size_t mRows, mSteps;  // that are left of /x.dat and /c.coef
    const char* mSays;
  } cases[] = {{"/x.dat", 10, 1, 10, 20,
                "keeping 10 of 20 steps at t = 0 ... 4.5, leaving out 10 at t = 5 ... 9.5"},
               {"/x.dat", 5, 0, 5, 20, "keeping 5 of 20 steps at t = 0 ... 2, leaving out 15: "},
               {"/c.coef/coefs.dat", 25, 0, 20, 12, "keeping 12 of 20 steps at t = 0 ... 5.5"},
               {"/c.coef/index.dat", 15, 1, 20, 15, "keeping 15 of 20 steps at t = 0 ... 7"},
               {"/s.txt", 16, 0, 20, 20, "keeping 16 of 40 strings"}};
  for (const auto& c : cases) {
    Damage(c.mTable, c.mRow, c.mColumn);
    const std::string before = PlainH5::Bytes(Path("broken.h5"));
    EXPECT_THAT(Print({"-salvage", "saved.h5", "broken.h5"}, 1), HasSubstr(c.mSays));
    EXPECT_EQ(PlainH5::Bytes(Path("broken.h5")), before);
    Join({"saved.h5"});
    const File whole = File::Open(Path("whole.h5"));
    const File joined = File::Open(Path("out.h5"));
    const std::pair<const char*, std::size_t> tables[] = {{"/x.dat", c.mRows},
                                                          {"/zero.dat", 1},
                                                          {"/c.coef/index.dat", c.mSteps},
                                                          {"/c.coef/coefs.dat", 2 * c.mSteps}};
    for (const auto& [table, rows] : tables) {
      Rows expected = whole.ReadTable(table);
      expected.resize(rows);
      EXPECT_EQ(joined.ReadTable(table), expected) << table << " for " << c.mTable;
    }
    const bool isText = c.mTable == std::string("/s.txt");
    EXPECT_EQ(joined.ReadStrings("/s.txt").front().size(), isText ? 64U : 160U);
    EXPECT_TRUE(joined.Has("/V.ver"));
    fs::remove(Path("saved.h5"));
  }
}

TEST_F(SalvageTest, RowsThatWereNeverWrittenAreNotTakenForZeros) {
  WriteInput();
  Rows rows(7, {1, 1});
  rows.resize(10, {0, 0});
  File& file = Input("long.h5");
  file.Table("/x.dat", rows, {.mChunk = {5, 1}});
  file.Table("/y.dat", Rows(8, {1, 1}), {.mChunk = {5, 1}});
  const hid_t id = H5Dopen2(file.Id(), "/y.dat", H5P_DEFAULT);
  const hsize_t dims[] = {20, 2};
  EXPECT_GE(H5Dset_extent(id, dims), 0);
  H5Dclose(id);
  const std::string text = Print({"-salvage", "saved.h5", "long.h5"}, 1);
  EXPECT_THAT(text, HasSubstr("keeping 7 of 10 steps"));
  EXPECT_THAT(text, HasSubstr("keeping 8 of 20 steps"));
  EXPECT_EQ(File::Open(Path("saved.h5")).ReadTable("/y.dat"), Rows(8, {1, 1}));
}

TEST_F(SalvageTest, EndsWithWhatItHasDone) {
  WriteInput();
  EXPECT_THAT(Print({"-salvage", "saved.h5", "whole.h5"}), HasSubstr(": 5 of 5 datasets\n"));
  const std::string before = PlainH5::Bytes(Path("saved.h5"));
  std::ofstream(Path("none.h5")) << "no HDF5";
  const Arguments cases[] = {{"-salvage", "saved.h5", "whole.h5"},
                             {"-salvage", "new.h5", "none.h5"},
                             {"-salvage", "new.h5", "whole.h5", "saved.h5"},
                             {"-salvage", "new.h5", "-DeltaT", "1", "whole.h5"}};
  for (const Arguments& arguments : cases) {
    EXPECT_EQ(Info(arguments).mStatus, arguments.back() == "none.h5" ? 255 : 2);
    EXPECT_FALSE(fs::exists(Path("new.h5")));
  }
  EXPECT_EQ(PlainH5::Bytes(Path("saved.h5")), before);
}

}  // namespace
