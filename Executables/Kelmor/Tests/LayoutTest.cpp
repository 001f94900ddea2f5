#include <cmath>
#include <cstdlib>

#include "Executables/Kelmor/Tests/KelmorFixture.hpp"
#include "Utils/H5/Handle.hpp"

namespace {

using PlainH5::File;
using PlainH5::Rows;
using PlainH5::TableOptions;
using Dims = std::vector<hsize_t>;
using Filters = std::vector<H5Z_filter_t>;

const Filters sCompressed = {H5Z_FILTER_SHUFFLE, H5Z_FILTER_DEFLATE, H5Z_FILTER_FLETCHER32};

class LayoutTest : public KelmorFixture {};

// What a file says of a dataset besides its dimensions.
struct Properties {
  PropertyListHandle mList;
  DatatypeHandle mType;

  Properties(const File& file, const std::string& path) {
    const DatasetHandle dataset(H5Dopen2(file.Id(), path.c_str(), H5P_DEFAULT));
    EXPECT_GE(dataset, 0) << path;
    mList = PropertyListHandle(H5Dget_create_plist(dataset));
    mType = DatatypeHandle(H5Dget_type(dataset));
  }
  unsigned DeflateLevel() const {
    unsigned flags = 0;
    std::size_t values = 1;
    unsigned level = 0;
    EXPECT_GE(H5Pget_filter_by_id2(mList, H5Z_FILTER_DEFLATE, &flags, &values, &level, 0, nullptr,
                                   nullptr),
              0);
    return level;
  }
};

// With times, files written twice from the same data would differ.
bool HasTime(const File& file, const char* path) {
  H5O_info_t info;
  EXPECT_GE(H5Oget_info_by_name(file.Id(), path, &info, H5P_DEFAULT), 0) << path;
  return info.ctime != 0 || info.mtime != 0;
}

// Lists of strings have the type that other readers of these files expect.
void ExpectListOfStrings(const File& file, const std::string& path, const char* name,
                         const Strings& strings) {
  EXPECT_EQ(file.ReadStringAttribute(path, name), strings);
  const AttributeHandle attribute(
      H5Aopen_by_name(file.Id(), path.c_str(), name, H5P_DEFAULT, H5P_DEFAULT));
  const DatatypeHandle type(H5Aget_type(attribute));
  const DataspaceHandle space(H5Aget_space(attribute));
  EXPECT_EQ(H5Sget_simple_extent_ndims(space), 1) << path;
  EXPECT_GT(H5Tis_variable_str(type), 0) << path;
  EXPECT_EQ(H5Tget_strpad(type), H5T_STR_SPACEPAD) << path;
  EXPECT_EQ(H5Tget_cset(type), H5T_CSET_ASCII) << path;
}

TEST_F(LayoutTest, OutputsLookAsTheStoreWritesThem) {
  for (int i = 0; i < 2; ++i) {
    File& file = Input(std::to_string(i) + ".h5");
    file.Table("/G.dir/x.dat", {{0. + i, 1, 2}, {1. + i, 3, 4}}, {.mLegend = {"t", "a", "b"}});
    WriteCoef(file, "/c.coef", {{0. + i, 2}, {1. + i, 5}}, Count(0, 5));
    WriteTdm(file, "/t.tdm", {{0. + i, 6, 2}, {1. + i, 9, 1}}, Count(0, 9));
    // Each file has a step of 51000 values that is kept, and one of 30000, of which one is.
    WriteTdm(file, "/u.tdm", {{0. + i, 51000, 17000}, {1. + i, 81000, 10000}}, Count(0, 81000));
    file.Strings("/s.txt", {"ab", "c"}, {2});
    file.Version("/v.ver", 3);
  }
  struct DatasetCase {
    const char* mPath;
    Dims mDims;
    Dims mChunk;
    bool mIsTable;
  };
  const DatasetCase cases[] = {
      {"/G.dir/x.dat", {3, 3}, {3, 1}, true},
      {"/c.coef/index.dat", {3, 2}, {3, 1}, true},
      {"/c.coef/coefs.dat", {7, 1}, {7, 1}, true},
      {"/t.tdm/index.dat", {3, 3}, {3, 1}, true},
      {"/t.tdm/data.dat", {15, 1}, {15, 1}, true},
      {"/u.tdm/index.dat", {3, 3}, {3, 1}, true},
      {"/u.tdm/data.dat", {132000, 1}, {131072, 1}, true},
      {"/s.txt", {1}, {16}, false},
      {"/v.ver", {3, 2}, {1, 2}, false},
  };
  for (const bool isCompressed : {true, false}) {
    Join(isCompressed ? Arguments{"0.h5", "1.h5"} : Arguments{"-NoGzip", "0.h5", "1.h5"});
    const File output = Output();
    EXPECT_EQ(output.SuperblockVersion(), 2u);
    for (const DatasetCase& c : cases) {
      SCOPED_TRACE(c.mPath);
      EXPECT_EQ(output.Dims(c.mPath), c.mDims);
      Dims maxDims = c.mDims;
      maxDims[0] = H5S_UNLIMITED;
      EXPECT_EQ(output.MaxDims(c.mPath), maxDims);
      EXPECT_EQ(output.Chunk(c.mPath), c.mChunk);
      EXPECT_EQ(output.Filters(c.mPath), c.mIsTable && isCompressed ? sCompressed : Filters());
      const Properties properties(output, c.mPath);
      EXPECT_FALSE(HasTime(output, c.mPath));
      if (c.mIsTable) {
        EXPECT_GT(H5Tequal(properties.mType, H5T_NATIVE_DOUBLE), 0);
      } else {
        EXPECT_GT(H5Tis_variable_str(properties.mType), 0);
        EXPECT_EQ(H5Tget_strpad(properties.mType), H5T_STR_NULLTERM);
      }
      if (c.mIsTable && isCompressed) {
        EXPECT_EQ(properties.DeflateLevel(), 1u);
      }
    }
  }
  const File output = Output();
  for (const char* group : {"/", "/G.dir", "/c.coef", "/t.tdm"}) {
    EXPECT_FALSE(HasTime(output, group)) << group;
  }
  ExpectListOfStrings(output, "/G.dir/x.dat", "Legend", {"t", "a", "b"});
  ExpectListOfStrings(output, "/c.coef/index.dat", "Legend",
                      {"t", "index one past current coeff-data"});
  ExpectListOfStrings(output, "/c.coef/coefs.dat", "Legend", {"power"});
  ExpectListOfStrings(output, "/t.tdm/index.dat", "Legend",
                      {"t", "index one past this filestep", "Extents[0]"});
  ExpectListOfStrings(output, "/t.tdm/data.dat", "Legend", {"shift"});
  ExpectListOfStrings(output, "/t.tdm", "TensorSpec",
                      {"TensorDim=3; TensorSymm=1; DataMeshDim=1;"});
  const AttributeHandle version(
      H5Aopen_by_name(output.Id(), "/v.ver", "Version", H5P_DEFAULT, H5P_DEFAULT));
  unsigned long long number = 0;
  EXPECT_GE(H5Aread(version, H5T_NATIVE_ULLONG, &number), 0);
  EXPECT_EQ(number, 3u);
  EXPECT_GT(H5Tequal(DatatypeHandle(H5Aget_type(version)), H5T_NATIVE_ULLONG), 0);
}

TEST_F(LayoutTest, WhatIsEmptyStaysWithItsDescription) {
  for (const char* name : {"0.h5", "1.h5"}) {
    File& file = Input(name);
    WriteTimes(file, "/x.dat", {});
    WriteCoef(file, "/c.coef", {}, {});
    WriteCoef(file, "/d.coef", {{0, 0}}, {});
    WriteTdm(file, "/t.tdm", {}, {});
    WriteTdm(file, "/u.tdm", {{0, 0, 0}}, {});
    file.Strings("/s.txt", {}, {0});
  }
  Join({"0.h5", "1.h5"});
  const File output = Output();
  const std::pair<const char*, Dims> datasets[] = {
      {"/x.dat", {0, 2}},
      {"/c.coef/index.dat", {0, 2}},
      {"/c.coef/coefs.dat", {0, 1}},
      {"/d.coef/index.dat", {1, 2}},
      {"/d.coef/coefs.dat", {0, 1}},
      {"/t.tdm/index.dat", {0, 3}},
      {"/t.tdm/data.dat", {0, 1}},
      {"/u.tdm/index.dat", {1, 3}},
      {"/u.tdm/data.dat", {0, 1}},
  };
  for (const auto& [path, dims] : datasets) {
    EXPECT_EQ(output.Dims(path), dims) << path;
    EXPECT_EQ(output.Chunk(path), (Dims{1, 1})) << path;
    EXPECT_EQ(output.Filters(path), sCompressed) << path;
  }
  EXPECT_EQ(output.ReadStringAttribute("/x.dat", "Legend"), (Strings{"time", "value"}));
  EXPECT_EQ(output.ReadStringAttribute("/t.tdm", "TensorSpec"),
            Strings{"TensorDim=3; TensorSymm=1; DataMeshDim=1;"});
  EXPECT_FALSE(output.Has("/s.txt"));
}

// Whole numbers, so that every type holds them, without a pattern that hides a wrong row.
Rows Values(int first, int last) {
  Rows rows;
  for (int r = first; r < last; ++r) {
    const int value = r * 7919 % 65536 - 30000;
    rows.push_back({1. * r, 1. * value, 2. * value, value - 5.});
  }
  return rows;
}

TEST_F(LayoutTest, InputsOfAnyLayoutGiveTheSameOutput) {
  struct InputCase {
    const char* mName;
    TableOptions mOptions;
    bool mIsOldFormat;
    bool mHasFixedLegend;
  };
  const Strings legend = {"time", "a", "b", "Größe"};
  const InputCase cases[] = {
      {"as the store writes", {-1, {300, 1}, true}, false, false},
      {"not compressed", {-1, {64, 1}, false}, false, false},
      {"one chunk a value", {-1, {1, 1}, true}, false, false},
      {"chunks longer than the data", {-1, {5000, 1}, true}, true, true},
      {"chunks over columns", {-1, {7, 3}, true}, false, false},
      {"chunks of rows, not compressed", {-1, {100, 4}, false}, true, false},
      {"contiguous", {-1, {}, false}, false, false},
      {"contiguous, oldest format", {-1, {}, false}, true, true},
      {"big-endian", {H5T_IEEE_F64BE, {64, 1}, true}, true, false},
      {"single precision", {H5T_IEEE_F32LE, {64, 2}, true}, false, false},
      {"single precision, by columns", {H5T_IEEE_F32LE, {64, 1}, true}, false, true},
      {"whole numbers", {H5T_STD_I32BE, {}, false}, true, false},
  };
  Input("2.h5").Table("/x.dat", Values(400, 500), {.mLegend = legend});
  WriteCoef(Input("2.h5"), "/c.coef", {{3, 300}}, Count(1000, 300));
  Rows joined = Values(0, 500);
  Rows coefs = Count(0, 900);
  const Rows last = Count(1000, 300);
  coefs.insert(coefs.end(), last.begin(), last.end());
  for (const InputCase& c : cases) {
    SCOPED_TRACE(c.mName);
    {
      File& file = Input("1.h5", c.mIsOldFormat);
      TableOptions options = c.mOptions;
      file.Table("/x.dat", Values(0, 450), options);
      if (c.mHasFixedLegend) {
        file.FixedStringAttribute("/x.dat", "Legend", legend, 9);
      } else {
        file.StringAttribute("/x.dat", "Legend", legend);
      }
      if (!options.mChunk.empty()) {
        options.mChunk[1] = 1;
      }
      file.Table("/c.coef/index.dat", {{0, 450}, {1, 450}, {2, 900}, {4, 1000}}, options);
      file.Table("/c.coef/coefs.dat", Count(0, 1000), options);
      EXPECT_EQ(file.SuperblockVersion(), c.mIsOldFormat ? 0u : 3u);
    }
    // One column of the table at a time, two, and all.
    for (const char* cacheSize : {"1001", "10000", "1e9"}) {
      Join({"1.h5", "2.h5", "-cachesize", cacheSize});
      const File output = Output();
      EXPECT_EQ(output.ReadTable("/x.dat"), joined);
      EXPECT_EQ(output.ReadStringAttribute("/x.dat", "Legend"), legend);
      EXPECT_EQ(output.ReadTable("/c.coef/index.dat"),
                (Rows{{0, 450}, {1, 450}, {2, 900}, {3, 1200}}));
      EXPECT_EQ(output.ReadTable("/c.coef/coefs.dat"), coefs);
    }
  }
}

// Long enough columns for threads to share, of values that compress here and there.
TEST_F(LayoutTest, TheNumberOfThreadsMakesNoDifference) {
  Rows rows;
  for (int r = 0; r < 150000; ++r) {
    rows.push_back({r * 0.01, std::sin(r * 0.001), r % 7 * 1., std::sqrt(r)});
  }
  Input("0.h5").Table("/G.dir/x.dat", rows, {.mChunk = {100000, 1}, .mCompress = true});
  CloseInputs();
  std::string first;
  for (const char* threads : {"1", "2", "5"}) {
    ASSERT_EQ(setenv("VEXA_THREADS", threads, 1), 0);
    Join({"0.h5"});
    const std::string bytes = PlainH5::Bytes(Path("out.h5"));
    EXPECT_TRUE(first.empty() || bytes == first) << threads;
    first = bytes;
  }
  unsetenv("VEXA_THREADS");
  EXPECT_TRUE(Output().ReadTable("/G.dir/x.dat") == rows);
}

}  // namespace
