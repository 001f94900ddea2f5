#include "Utils/Store/H5_ObjectDat.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <tuple>

#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/TestSupport/PlainH5.hpp"

namespace {

using H5_Objects::Dat;
using PlainH5::IsReport;
using PlainH5::ReportOf;
using PlainH5::Rows;

// A table inside a group that stands for the file; opened and closed by hand.
class DatTest : public testing::Test {
 protected:
  DatTest() : mFile(PlainH5::File::Create(mDir / "t.h5")) {}
  PlainH5::TempDir mDir;
  PlainH5::File mFile;
};

TEST_F(DatTest, WritesTheLayoutThatOthersRead) {
  for (const bool compress : {false, true}) {
    const std::string name = compress ? "gzip.dat" : "plain.dat";
    Dat dat(name, false, 0);
    dat.Initialize({"time", "x"}, compress, 4);
    EXPECT_EQ(dat.SizeOfCache(), 5u) << "the legend's characters";
    dat.Append({0, 10});
    dat.OpenObject(mFile.Id());
    EXPECT_EQ(dat.SizeOfCache(), 16u);
    for (const double t : {1., 2., 3., 4.}) {
      dat.Append({t, 10 + t});
    }
    EXPECT_EQ(dat.GetExtents()[0], 5u);
    dat.WriteCache();
    EXPECT_EQ(dat.NTimeStepsCached(), 0u);
    dat.Append({5, 15});
    // A chunk of rows that begins inside a chunk.
    dat.WriteManyStepsImmediately_(4, [](Tables::ColumnWriter& writer) {
      writer.Append(std::vector<double>{6, 7, 8, 9, 16, 17, 18, 19});
    });
    dat.WriteManyStepsImmediately({});
    dat.CloseObject();
    Rows rows;
    for (double t = 0; t < 10; ++t) {
      rows.push_back({t, 10 + t});
    }
    EXPECT_EQ(mFile.ReadTable(name), rows);
    EXPECT_EQ(mFile.MaxDims(name), (std::vector<hsize_t>{H5S_UNLIMITED, 2}));
    EXPECT_EQ(mFile.Chunk(name), (std::vector<hsize_t>{4, 1}));
    EXPECT_EQ(mFile.ReadStringAttribute(name, "Legend"), (std::vector<std::string>{"time", "x"}));
    EXPECT_EQ(mFile.Filters(name).size(), compress ? 3u : 0u);
  }
  Dat longest("longest.dat", false, 0);
  longest.Initialize({"time"}, false, std::numeric_limits<std::size_t>::max());
  longest.OpenObject(mFile.Id());
  longest.CloseObject();
  EXPECT_EQ(mFile.Chunk("longest.dat")[0], 0xffffffffULL / 8) << "a chunk is less than 4 GiB";
}

TEST_F(DatTest, ReadsEveryLayoutAlike) {
  Rows rows;
  for (int r = 0; r < 50; ++r) {
    rows.push_back({r * 1., r * 2., r * 3. - 7});
  }
  const auto isSameRow = [](const MyVector<double>& a, const std::vector<double>& b) {
    return a == MyVector<double>(b);
  };
  const std::pair<const char*, PlainH5::TableOptions> layouts[] = {
      {"contiguous", {.mChunk = {}}},
      {"columns", {.mChunk = {16, 1}, .mCompress = true}},
      {"plain columns", {.mChunk = {16, 1}}},
      {"rows", {.mChunk = {1, 3}}},
      {"blocks across edges", {.mChunk = {7, 2}, .mCompress = true}},
      {"float32", {.mType = H5T_IEEE_F32LE, .mChunk = {16, 1}, .mCompress = true}},
      {"big-endian integers", {.mType = H5T_STD_I32BE, .mChunk = {64, 3}}}};
  for (const auto& [name, options] : layouts) {
    SCOPED_TRACE(name);
    const std::string path = std::string(name) + ".dat";
    mFile.Table(path, rows, options);
    Dat dat(path, true, 0);
    dat.OpenObject(mFile.Id());
    const MyVector<MyVector<double>> read = dat.RetrieveData();
    EXPECT_TRUE(std::equal(read.begin(), read.end(), rows.begin(), rows.end(), isSameRow));
    // A block that begins and ends inside chunks.
    std::vector<double> block(2 * 11);
    dat.RetrieveColumns_({1, 2, 5, 11}, block.data());
    for (std::size_t r = 0; r < 11; ++r) {
      EXPECT_EQ(block[r], rows[5 + r][1]);
      EXPECT_EQ(block[11 + r], rows[5 + r][2]);
    }
    // Runs within a chunk, over several, and next to one another.
    const std::vector<Tables::RowRun> runs = {{1, 2}, {3, 4}, {5, 38}, {38, 40}, {48, 50}};
    std::vector<double> picked(1 + 1 + 33 + 2 + 2);
    Tables::PendingReads reads;
    dat.RetrieveRuns_(1, runs, picked.data(), reads);
    reads.Finish();
    std::vector<double> expected;
    for (const Tables::RowRun& run : runs) {
      for (std::uint64_t r = run.mFirst; r < run.mOnePastLast; ++r) {
        expected.push_back(rows[r][1]);
      }
    }
    EXPECT_EQ(picked, expected);
    EXPECT_EQ(dat.GetLegend()[2], "undef 2");
    dat.CloseObject();
  }
}

TEST_F(DatTest, RetrievesColumnsUpToTheEndAndNoFurther) {
  mFile.Table("DimensionfullInertialSpin.dat", {{0, 1, 2}, {3, 4, 5}, {6, 7, 8}},
              {.mChunk = {2, 1}, .mCompress = true});
  // Under its misspelled name of old files, and with a chunk that was never written.
  {
    const Vexa_H5::DatasetHandle dataset(
        H5Dopen2(mFile.Id(), "DimensionfullInertialSpin.dat", H5P_DEFAULT));
    const hsize_t dims[2] = {5, 3};
    ASSERT_GE(H5Dset_extent(dataset, dims), 0);
  }
  Dat dat("DimensionfulInertialSpin.dat", true, 0);
  dat.OpenObject(mFile.Id());
  const MyVector<MyVector<double>> columns = dat.RetrieveColumns({0, 2}, 1, 5);
  EXPECT_EQ(columns[0], (MyVector<double>{3, 6, 0, 0}));
  EXPECT_EQ(columns[1], (MyVector<double>{5, 8, 0, 0}));
  EXPECT_EQ(dat.RetrieveColumns({1}, 5, 5)[0].size(), 0u);
  dat.Append({9, 9, 9});
  const std::tuple<int, int, int, const char*> bad[] = {
      {0, 0, 7, "one_past_last <= GetExtents()[0]"},
      {0, 0, 6, "one_past_last <= mExtents[0]"},  // reaches into the cache
      {0, 2, 1, "first <= one_past_last"},
      {3, 0, 1, "columns[j]>=0 && static_cast<unsigned long long>(columns[j])<mExtents[1]"}};
  for (const auto& [column, first, onePastLast, condition] : bad) {
    const std::string report = ReportOf([&] { dat.RetrieveColumns({column}, first, onePastLast); });
    EXPECT_TRUE(IsReport(report, condition, "Dat::RetrieveColumns ")) << report;
  }
  dat.WriteCache();
  EXPECT_EQ(dat.RetrieveColumns({0}, 5, 6)[0][0], 9);
  dat.CloseObject();
}

TEST_F(DatTest, Refusals) {
  Dat fresh("fresh.dat", false, 0);
  mFile.Table("there.dat", {{0, 1}});
  const std::tuple<std::function<void()>, const char*, const char*> refusals[] = {
      {[&] { fresh.Append({1}); }, "IsInitialized()",
       "H5_Objects::Dat must be initialized before appending\nName=fresh.dat"},
      {[&] {
         fresh.Initialize({"time", "x"}, false, 8);
         fresh.Append({1});
       },
       "static_cast<int>(mExtents[1])==data.Size()",
       "data being appended inconsistent with Extents\nName=fresh.dat"},
      {[&] {
         fresh.OpenObject(mFile.Id());
         fresh.WriteManyStepsImmediately({1, 2});
       },
       "data.empty() || mExtents[1]==1", "WriteManyStepsImmediately needs a dataset of one column"},
      {[&] {
         Dat widths("there.dat", true, 0);
         widths.Append({1, 2, 3});
         widths.Append({1});
       },
       "mNumberOfColumnsPerRow==data.size()", "data being appended must be"},
      {[&] {
         Dat wide("there.dat", true, 0);
         wide.Append({1, 2, 3});
         wide.OpenObject(mFile.Id());
         wide.WriteCache();
       },
       "mNumberOfColumnsPerRow == mLegends.size()",
       "The CachedData has entries of length3,\nbut Legends has length2"}};
  for (const auto& [action, condition, message] : refusals) {
    const std::string report = ReportOf(action);
    EXPECT_TRUE(IsReport(report, condition, message)) << message << report;
  }
}

TEST_F(DatTest, EndsTheProcessOverRowsThatWouldBeLost) {
  const auto lose = [&] {
    Dat dat("a.dat", false, 0);
    dat.Initialize({"time"}, false, 8);
    dat.Append({1});
  };
  EXPECT_EXIT(lose(), testing::ExitedWithCode(255),
              "Attempting to destruct H5_ObjectDat with non-empty Cache");
}

}  // namespace
