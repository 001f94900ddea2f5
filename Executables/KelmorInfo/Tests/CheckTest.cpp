#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <numeric>

#include "Executables/KelmorInfo/Check.hpp"
#include "Executables/KelmorInfo/Tests/InfoFixture.hpp"
#include "Utils/HDF5/Handle.hpp"

namespace {

namespace fs = std::filesystem;
using PlainH5::File;
using testing::HasSubstr;

TEST(Check, BlocksCoverATableInWholeChunks) {
  struct Case {
    std::uint64_t mRows;
    std::uint64_t mColumns;
    std::uint64_t mChunkRows;
    std::size_t mBlocks;
  };
  constexpr std::uint64_t mega = 1024 * 1024;
  const Case cases[] = {
      {0, 5, 1, 0},
      {10, 3, 10, 1},
      {2 * mega, 1, 2 * mega, 1},
      {mega / 2, 10, mega / 2, 3},   // four columns at a time
      {50 * mega, 2, 50 * mega, 2},  // a chunk is longer than a block
      {5 * mega, 1, 131072, 3},
      {5 * mega, 2, 0, 6},  // not chunked
      {mega / 2, 10, 3 * mega / 20, 3},
  };
  for (const Case& c : cases) {
    Tables::TableLayout layout;
    layout.mRows = c.mRows;
    layout.mColumns = c.mColumns;
    layout.mChunkRows = c.mChunkRows;
    const std::vector<Tables::ColumnBlock> blocks = BlocksOf(layout);
    EXPECT_EQ(blocks.size(), c.mBlocks) << c.mRows << " x " << c.mColumns;
    std::uint64_t values = 0;
    for (const Tables::ColumnBlock& block : blocks) {
      values += block.mRows * block.mColumns;
      EXPECT_LE(block.mFirstColumn + block.mColumns, c.mColumns);
      EXPECT_LE(block.mFirstRow + block.mRows, c.mRows);
      EXPECT_EQ(block.mFirstRow % std::max<std::uint64_t>(c.mChunkRows, 1), 0u);
      EXPECT_LE(block.mRows * block.mColumns, std::max(2 * mega, c.mChunkRows));
    }
    EXPECT_EQ(values, c.mRows * c.mColumns);
  }
}

class CheckTest : public InfoFixture {
 protected:
  void WriteInputs() {
    for (int k = 0; k < 3; ++k) {
      File& file = Input(std::to_string(k) + ".h5");
      const double t = 2.5 * k;
      WriteTimes(file, "/A.dir/x.dat", {t, t + 1, t + 2, t + 3}, k);
      WriteCoef(file, "/c.coef", {{t, 2}, {t + 1, 2}, {t + 3, 7}}, Count(10 * k, 7));
      WriteTdm(file, "/t.tdm", {{t, 12, 2, 2}, {t + 3, 15, 1, 1}}, Count(10 * k, 15),
               sTwoDimensionalSpec);
      file.Strings("/s.txt", {"text", std::to_string(k)}, {2});
      file.Strings("/empty.txt", {""}, {1});
      file.Table("/empty.dat", {}, {}, 3);
      file.Version("/V.ver", 2);
    }
  }

  // Changes the joined file.
  void Mutate(const std::function<void(hid_t file)>& change) {
    const Vexa_H5::Handle<H5Fclose> file(
        H5Fopen(Path("out.h5").c_str(), H5F_ACC_RDWR, H5P_DEFAULT));
    ASSERT_GE(file, 0);
    change(file);
  }
};

using Change = std::function<void(hid_t)>;

// One number of a table replaced.
Change Set(const char* table, hsize_t row, hsize_t column, double value) {
  return [=](hid_t file) {
    const Vexa_H5::DatasetHandle dataset(H5Dopen2(file, table, H5P_DEFAULT));
    const Vexa_H5::DataspaceHandle space(H5Dget_space(dataset));
    const Vexa_H5::DataspaceHandle one(H5Screate(H5S_SCALAR));
    const hsize_t at[2] = {row, column};
    EXPECT_GE(H5Sselect_elements(space, H5S_SELECT_SET, 1, at), 0);
    EXPECT_GE(H5Dwrite(dataset, H5T_NATIVE_DOUBLE, one, space, H5P_DEFAULT, &value), 0);
  };
}

// All strings of a dataset or an attribute replaced.
Change Rewrite(const char* path, const char* attribute, std::vector<const char*> strings) {
  return [=](hid_t file) {
    const Vexa_H5::DatatypeHandle type(H5Tcopy(H5T_C_S1));
    H5Tset_size(type, H5T_VARIABLE);
    const Vexa_H5::Handle<H5Oclose> object(H5Oopen(file, path, H5P_DEFAULT));
    if (attribute == nullptr) {
      EXPECT_GE(H5Dwrite(object, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, strings.data()), 0);
    } else {
      const Vexa_H5::AttributeHandle handle(H5Aopen(object, attribute, H5P_DEFAULT));
      EXPECT_GE(H5Awrite(handle, type, strings.data()), 0);
    }
  };
}

Change Remove(const char* path) {
  return [=](hid_t file) { EXPECT_GE(H5Ldelete(file, path, H5P_DEFAULT), 0); };
}

Change Copy(const char* from, const char* to) {
  return [=](hid_t file) { EXPECT_GE(H5Ocopy(file, from, file, to, H5P_DEFAULT, H5P_DEFAULT), 0); };
}

Change Resize(const char* path, hsize_t rows, hsize_t columns) {
  return [=](hid_t file) {
    const Vexa_H5::DatasetHandle dataset(H5Dopen2(file, path, H5P_DEFAULT));
    const hsize_t dims[2] = {rows, columns};
    EXPECT_GE(H5Dset_extent(dataset, dims), 0);
  };
}

TEST_F(CheckTest, TheFirstDifferenceIsTold) {
  WriteInputs();
  const Arguments inputs = {"0.h5", "1.h5", "2.h5"};
  Join(inputs);
  fs::rename(Path("out.h5"), Path("joined.h5"));
  const std::pair<Change, const char*> cases[] = {
      {Set("/A.dir/x.dat", 4, 1, 102.5),
       "/A.dir/x.dat differs in column 1 (value): row 4 of out.h5 has 102.5, "
       "step 1 (t = 3.5) of 1.h5 has 101\n"},
      {Set("/A.dir/x.dat", 0, 0, -0.0), "row 0 of out.h5 has -0, step 0 (t = 0) of 0.h5 has 0\n"},
      {Set("/c.coef/coefs.dat", 3, 0, -1),
       "/c.coef differs: row 3 of out.h5 has -1, value 1 of step 0 (t = 2.5) of 1.h5 has 11\n"},
      {Set("/c.coef/index.dat", 2, 0, 2.75), "/c.coef: the time of step 2 is 2.75 in out.h5"},
      {Set("/c.coef/index.dat", 0, 1, 1), "/c.coef: the number of values of step 0 is 1 in out.h5"},
      {Set("/t.tdm/data.dat", 20, 0, 0.5), "/t.tdm differs: row 20 of out.h5 has 0.5, value 8 of"},
      {[](hid_t file) {
         Set("/t.tdm/index.dat", 0, 2, 4)(file);
         Set("/t.tdm/index.dat", 0, 3, 1)(file);
       },
       "/t.tdm: the extent 0 of the mesh of step 0 is 4 in out.h5, but should be 2\n"},
      {Rewrite("/t.tdm", "TensorSpec", {"TensorDim=3; TensorSymm=2; DataMeshDim=2;"}),
       "/t.tdm: the tensor structure is dimension 3, symmetry '2', 3 components in out.h5, but"},
      {Rewrite("/A.dir/x.dat", "Legend", {"time", "other"}),
       "/A.dir/x.dat: the legend is (time,other) in out.h5, but should be (time,value)\n"},
      {Rewrite("/t.tdm/data.dat", "Legend", {"other"}),
       "/t.tdm: the description of the data is other in out.h5, but should be shift\n"},
      {Rewrite("/c.coef/index.dat", "Legend", {"other", "index one past current coeff-data"}),
       "/c.coef: the description of the time is other in out.h5, but should be t\n"},
      {Rewrite("/c.coef/index.dat", "Legend", {"t", "other"}),
       "/c.coef: the legend of the index is (t,other) in out.h5, but should be "
       "(t,index one past current coeff-data)\n"},
      {Rewrite("/t.tdm/index.dat", "Legend",
               {"t", "index one past this filestep", "Extents[0]", "other"}),
       "Extents[0],other) in out.h5, but should be (t,index one past this filestep,Extents[0],"
       "Extents[1])\n"},
      {Rewrite("/V.ver", nullptr, {"hash0", "help0", "hash1", "other"}),
       "/V.ver: the text of entry 1 is other in out.h5, but should be help1\n"},
      {Rewrite("/s.txt", nullptr, {"text0texX1text2"}),
       "/s.txt differs at character 8 of out.h5, which is character 3 of 1.h5\n"},
      {Rewrite("/s.txt", nullptr, {"text0text1text2+"}),
       "/s.txt: the length of the text is 16 in out.h5, but should be 15\n"},
      {Rewrite("/s.txt", nullptr, {"text0text1text"}), "/s.txt differs at character 14"},
      {Resize("/A.dir/x.dat", 11, 2), "/A.dir/x.dat: the number of steps is 11 in out.h5"},
      {Remove("/empty.dat"), "/empty.dat is in 0.h5, but not in out.h5\n"},
      {Remove("/V.ver"), "/V.ver is in 0.h5, but not in out.h5\n"},
      {Remove("/s.txt"), "/s.txt is in 0.h5, but not in out.h5\n"},
      {Copy("/s.txt", "/more.txt"), "/more.txt is in out.h5, but not among what is joined\n"},
      {Copy("/s.txt", "/empty.txt"), "/empty.txt is in out.h5, but all inputs of it are empty\n"},
  };
  for (const auto& [change, text] : cases) {
    fs::remove(Path("out.h5"));
    fs::copy_file(Path("joined.h5"), Path("out.h5"));
    Mutate(change);
    Arguments arguments = {"-check", "out.h5"};
    arguments.insert(arguments.end(), inputs.begin(), inputs.end());
    EXPECT_THAT(Print(arguments, 1), HasSubstr(text));
  }
}

TEST_F(CheckTest, LongSeriesAreComparedToTheirEnd) {
  // More values than are in memory at a time, in runs that end anywhere.
  constexpr std::size_t values = 3000000;
  const auto write = [this](const char* name, double t, double first) {
    const double third = values / 3;
    File& file = Input(name);
    file.Table("/c.coef/index.dat", {{t, third}, {t + 1, 2 * third}, {t + 2, 3 * third}});
    file.Table("/t.tdm/index.dat", {{t, 3, 1}, {t + 1, values, third - 1}});
    file.StringAttribute("/t.tdm", "TensorSpec", {"TensorDim=3; TensorSymm=1; DataMeshDim=1;"});
    std::vector<double> numbers(values);
    std::iota(numbers.begin(), numbers.end(), first);
    for (const char* table : {"/c.coef/coefs.dat", "/t.tdm/data.dat"}) {
      file.Table(table, {}, {.mChunk = {7000, 1}}, 1);
      Resize(table, values, 1)(file.Id());
      const Vexa_H5::DatasetHandle dataset(H5Dopen2(file.Id(), table, H5P_DEFAULT));
      EXPECT_GE(H5Dwrite(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, numbers.data()),
                0);
    }
  };
  write("1.h5", 0, 0);
  write("2.h5", 1.5, 1e7);
  Join({"1.h5", "2.h5"});
  const Arguments check = {"-check", "out.h5", "1.h5", "2.h5"};
  const RunResult result = Info(check);
  EXPECT_EQ(result.mStatus, 0) << result.mOutput;
  EXPECT_LT(result.mPeakBytes, std::uint64_t{512} << 20);
  Mutate(Set("/t.tdm/data.dat", 2 * values - 4, 0, 5));
  EXPECT_THAT(Print(check, 1), HasSubstr("/t.tdm differs: row 5999996 of out.h5 has 5, value "
                                         "2999993 of step 1 (t = 2.5) of 2.h5 has 12999996\n"));
  Mutate(Set("/c.coef/coefs.dat", 2 * values / 3 + values - 1, 0, 5));
  EXPECT_THAT(Print(check, 1), HasSubstr("/c.coef differs: row 4999999 of out.h5 has 5, value "
                                         "999999 of step 2 (t = 3.5) of 2.h5 has 12999999\n"));
}

TEST_F(CheckTest, FewRowsOfLongColumnsAreComparedColumnByColumn) {
  constexpr hsize_t rows = 2000000;
  constexpr hsize_t columns = 32;
  File& file = Input("1.h5");
  file.Table("/x.dat", {}, {.mChunk = {rows, 1}}, columns);
  Resize("/x.dat", rows, columns)(file.Id());
  {
    // Only times are written: the other columns take no room in the file.
    std::vector<double> times(rows);
    std::iota(times.begin(), times.end(), 0);
    const Vexa_H5::DatasetHandle dataset(H5Dopen2(file.Id(), "/x.dat", H5P_DEFAULT));
    const Vexa_H5::DataspaceHandle space(H5Dget_space(dataset));
    const hsize_t start[2] = {0, 0};
    const hsize_t count[2] = {rows, 1};
    EXPECT_GE(H5Sselect_hyperslab(space, H5S_SELECT_SET, start, nullptr, count, nullptr), 0);
    const Vexa_H5::DataspaceHandle memory(H5Screate_simple(2, count, nullptr));
    EXPECT_GE(H5Dwrite(dataset, H5T_NATIVE_DOUBLE, memory, space, H5P_DEFAULT, times.data()), 0);
  }
  Join({"-DeltaT", "100000", "1.h5"});
  const Arguments check = {"-check", "out.h5", "-DeltaT", "100000", "1.h5"};
  const RunResult result = Info(check);
  EXPECT_EQ(result.mStatus, 0) << result.mOutput;
  EXPECT_LT(result.mPeakBytes, std::uint64_t{256} << 20);
  Mutate(Set("/x.dat", 19, columns - 1, 5));
  EXPECT_THAT(Print(check, 1), HasSubstr("/x.dat differs in column 31 (undef 31): row 19 of out.h5 "
                                         "has 5, step 1999999 (t = 1999999) of 1.h5 has 0\n"));
}

TEST_F(CheckTest, BadFilesHaveReports) {
  WriteTimes(Input("1.h5"), "/x.dat", {0, 1});
  Input("2.h5").Table("/x.dat", {{1, 2, 3}});
  const std::pair<Arguments, const char*> cases[] = {
      {{"-check", "1.h5", "1.h5"}, "multiple** instances"},
      {{"-check", "1.h5", "2.h5", "3.h5"}, "File 3.h5 not found"},
      {{"-check", "3.h5", "1.h5", "2.h5"}, "different number of columns"},
  };
  for (const auto& [arguments, text] : cases) {
    if (arguments[1] == std::string("3.h5")) {
      WriteTimes(Input("3.h5"), "/x.dat", {0, 1});
    }
    const RunResult result = Info(arguments);
    EXPECT_EQ(result.mStatus, 255);
    EXPECT_EQ(result.mOutput, "");
    EXPECT_THAT(result.mReports, HasSubstr(text));
  }
}

}  // namespace
