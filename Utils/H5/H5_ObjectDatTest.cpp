#include "Utils/H5/H5_ObjectDat.hpp"

#include <gtest/gtest.h>

#include <limits>

#include "Utils/H5/CachedH5File.hpp"
#include "Utils/H5/CachedH5FileHolder.hpp"
#include "Utils/H5/TestSupport/PlainH5.hpp"

namespace {

using H5_Objects::Dat;
using PlainH5::IsReport;
using PlainH5::ReportOf;
using PlainH5::Rows;

// A table inside a group that stands for the file; opened and closed by hand.
class DatTest : public testing::Test {
 protected:
  DatTest() : mFile(PlainH5::File::Create(mDir / "t.h5")) {}

  MyVector<double> Row(std::initializer_list<double> values) { return values; }

  PlainH5::TempDir mDir;
  PlainH5::File mFile;
};

TEST_F(DatTest, WritesTheLayoutThatOthersRead) {
  for (const bool compress : {false, true}) {
    const std::string name = compress ? "gzip.dat" : "plain.dat";
    Dat dat(name, false, 0);
    dat.Initialize({"time", "x"}, compress, 4);
    EXPECT_EQ(dat.SizeOfCache(), 5u) << "the legend's characters";
    dat.Append(Row({0, 10}));
    dat.OpenObject(mFile.Id());
    EXPECT_EQ(dat.SizeOfCache(), 16u);
    for (const double t : {1., 2., 3., 4.}) {
      dat.Append(Row({t, 10 + t}));
    }
    EXPECT_EQ(dat.NTimeStepsCached(), 5u);
    EXPECT_EQ(dat.GetExtents()[0], 5u);
    dat.WriteCache();
    EXPECT_EQ(dat.NTimeStepsCached(), 0u);
    dat.Append(Row({5, 15}));
    dat.WriteCache();
    dat.WriteCache();
    EXPECT_EQ(dat.GetExtents()[0], 6u);
    dat.CloseObject();

    const Rows rows = {{0, 10}, {1, 11}, {2, 12}, {3, 13}, {4, 14}, {5, 15}};
    EXPECT_EQ(mFile.ReadTable(name), rows);
    EXPECT_EQ(mFile.MaxDims(name), (std::vector<hsize_t>{H5S_UNLIMITED, 2}));
    EXPECT_EQ(mFile.Chunk(name), (std::vector<hsize_t>{4, 1}));
    EXPECT_EQ(mFile.ReadStringAttribute(name, "Legend"), (std::vector<std::string>{"time", "x"}));
    const std::vector<H5Z_filter_t> filters = {H5Z_FILTER_SHUFFLE, H5Z_FILTER_DEFLATE,
                                               H5Z_FILTER_FLETCHER32};
    EXPECT_EQ(mFile.Filters(name), compress ? filters : std::vector<H5Z_filter_t>{});
  }
}

TEST_F(DatTest, ReadsEveryLayoutAlike) {
  Rows rows;
  for (int r = 0; r < 50; ++r) {
    rows.push_back({r * 1., r * 2., r * 3. - 7});
  }
  const std::pair<const char*, PlainH5::TableOptions> layouts[] = {
      {"contiguous", {.mChunk = {}}},
      {"columns", {.mChunk = {16, 1}, .mCompress = true}},
      {"plain columns", {.mChunk = {16, 1}}},
      {"rows", {.mChunk = {1, 3}}},
      {"blocks across edges", {.mChunk = {7, 2}, .mCompress = true}},
      {"float32", {.mType = H5T_IEEE_F32LE, .mChunk = {}}},
      {"big-endian integers", {.mType = H5T_STD_I32BE, .mChunk = {64, 3}}}};
  for (const auto& [name, options] : layouts) {
    const std::string path = std::string(name) + ".dat";
    mFile.Table(path, rows, options);
    Dat dat(path, true, 0);
    dat.OpenObject(mFile.Id());
    const MyVector<MyVector<double>> read = dat.RetrieveData();
    ASSERT_EQ(read.size(), rows.size()) << name;
    for (std::size_t r = 0; r < rows.size(); ++r) {
      EXPECT_EQ(read[r], MyVector<double>(rows[r])) << name << " row " << r;
    }
    // A block that begins and ends inside chunks.
    std::vector<double> block(2 * 11);
    dat.RetrieveColumns_({1, 2, 5, 11}, block.data());
    for (std::size_t r = 0; r < 11; ++r) {
      EXPECT_EQ(block[r], rows[5 + r][1]) << name;
      EXPECT_EQ(block[11 + r], rows[5 + r][2]) << name;
    }
    // Runs within a chunk, over several, and next to one another.
    const std::vector<RowRun> runs = {{0, 1}, {3, 4}, {5, 38}, {38, 40}, {48, 50}};
    std::vector<double> picked(1 + 1 + 33 + 2 + 2);
    PendingReads reads;
    dat.RetrieveRuns_(1, runs, picked.data(), reads);
    reads.Finish();
    std::vector<double> expected;
    for (const RowRun& run : runs) {
      for (std::uint64_t r = run.mFirst; r < run.mOnePastLast; ++r) {
        expected.push_back(rows[r][1]);
      }
    }
    EXPECT_EQ(picked, expected) << name;
    EXPECT_EQ(dat.GetLegend()[2], "undef 2");
    dat.CloseObject();
  }
}

TEST_F(DatTest, ChunksThatWereNeverWrittenReadAsZeros) {
  mFile.Table("a.dat", {{1, 2}, {3, 4}}, {.mChunk = {2, 1}, .mCompress = true});
  {
    const DatasetHandle dataset(H5Dopen2(mFile.Id(), "a.dat", H5P_DEFAULT));
    const hsize_t dims[2] = {5, 2};
    ASSERT_GE(H5Dset_extent(dataset, dims), 0);
  }
  Dat dat("a.dat", true, 0);
  dat.OpenObject(mFile.Id());
  EXPECT_EQ(dat.RetrieveColumns({1}, 1, 5)[0], (MyVector<double>{4, 0, 0, 0}));
  dat.CloseObject();
}

TEST_F(DatTest, RetrievesColumnsUpToTheEndAndNoFurther) {
  mFile.Table("a.dat", {{0, 1, 2}, {3, 4, 5}, {6, 7, 8}});
  Dat dat("a.dat", true, 0);
  dat.OpenObject(mFile.Id());
  const MyVector<MyVector<double>> columns = dat.RetrieveColumns({0, 2}, 1, 3);
  EXPECT_EQ(columns[0], (MyVector<double>{3, 6}));
  EXPECT_EQ(columns[1], (MyVector<double>{5, 8}));
  EXPECT_EQ(dat.RetrieveColumns({1}, 3, 3)[0].size(), 0u);
  EXPECT_TRUE(IsReport(ReportOf([&] { dat.RetrieveColumns({0}, 0, 4); }),
                       "one_past_last <= GetExtents()[0]",
                       "Dat::RetrieveColumns called with one_past_last larger than\nextents.  "));
  EXPECT_NE(ReportOf([&] { dat.RetrieveColumns({3}, 0, 1); }), "");
  EXPECT_NE(ReportOf([&] { dat.RetrieveColumns({0}, 2, 1); }), "");
  dat.Append(Row({9, 9, 9}));
  EXPECT_NE(ReportOf([&] { dat.RetrieveColumns({0}, 0, 4); }), "") << "reaches into the cache";
  dat.WriteCache();
  EXPECT_EQ(dat.RetrieveColumns({0}, 3, 4)[0][0], 9);
  dat.CloseObject();
}

TEST_F(DatTest, WritesManyStepsAfterWhatIsCached) {
  Dat dat("v.dat", false, 0);
  dat.Initialize({"v"}, true, 3);
  dat.OpenObject(mFile.Id());
  dat.Append(Row({1}));
  dat.WriteManyStepsImmediately({});
  dat.Append(Row({2}));
  dat.WriteManyStepsImmediately({3, 4, 5});
  EXPECT_EQ(dat.GetExtents()[0], 5u);
  dat.CloseObject();
  EXPECT_EQ(mFile.ReadTable("v.dat"), (Rows{{1}, {2}, {3}, {4}, {5}}));

  Dat wide("w.dat", false, 0);
  wide.Initialize({"a", "b"}, false, 1);
  wide.OpenObject(mFile.Id());
  EXPECT_NE(ReportOf([&] { wide.WriteManyStepsImmediately({1, 2}); }), "");
  wide.CloseObject();
}

TEST_F(DatTest, ChunkLengthsAreMadeToFit) {
  const std::pair<std::size_t, hsize_t> cases[] = {
      {0, 1}, {1, 1}, {std::numeric_limits<std::size_t>::max(), 0xffffffffULL / 8}};
  int i = 0;
  for (const auto& [asked, got] : cases) {
    const std::string name = std::to_string(i++) + ".dat";
    Dat dat(name, false, 0);
    dat.Initialize({"time"}, false, asked);
    dat.OpenObject(mFile.Id());
    dat.CloseObject();
    EXPECT_EQ(mFile.Chunk(name)[0], got);
  }
}

TEST_F(DatTest, ReadsMisspelledLegacyNames) {
  mFile.Table("DimensionfullInertialSpin.dat", {{1, 2}});
  Dat dat("DimensionfulInertialSpin.dat", true, 0);
  dat.OpenObject(mFile.Id());
  EXPECT_EQ(dat.RetrieveData()[0], (MyVector<double>{1, 2}));
  dat.CloseObject();
}

TEST_F(DatTest, Refusals) {
  Dat fresh("fresh.dat", false, 0);
  EXPECT_TRUE(IsReport(ReportOf([&] { fresh.Append(Row({1})); }), "IsInitialized()",
                       "H5_Objects::Dat must be initialized before appending\nName=fresh.dat"));
  EXPECT_TRUE(IsReport(ReportOf([&] { fresh.GetExtents(); }), "AreAttributesKnown()",
                       "Must call Initialize or OpenObject first"));
  fresh.Initialize({"time", "x"}, false, 8);
  EXPECT_TRUE(IsReport(ReportOf([&] { fresh.Append(Row({1})); }),
                       "static_cast<int>(mExtents[1])==data.Size()",
                       "data being appended inconsistent with Extents\nName=fresh.dat"));
  EXPECT_TRUE(IsReport(ReportOf([&] { fresh.Initialize({"t"}, false, 8); }), "!IsInitialized()",
                       "DataSet already initialized"));
  EXPECT_TRUE(IsReport(ReportOf([&] { fresh.WriteCache(); }), "IsObjectOpen()",
                       "Consistency error: Called WriteCache on a closed object"));

  // A row that waits for a table nobody has looked at yet is checked when it is written.
  mFile.Table("there.dat", {{0, 1}});
  const auto appendWrongRow = [&] {
    Dat there("there.dat", true, 0);
    there.Append(Row({1, 2, 3}));
    there.OpenObject(mFile.Id());
    there.WriteCache();
  };
  EXPECT_TRUE(IsReport(ReportOf(appendWrongRow), "mNumberOfColumnsPerRow == mLegends.size()",
                       "The CachedData has entries of length3,\nbut Legends has length2"));
  const auto appendTwoWidths = [&] {
    Dat there("there.dat", true, 0);
    there.Append(Row({1, 2, 3}));
    there.Append(Row({1}));
  };
  EXPECT_TRUE(IsReport(ReportOf(appendTwoWidths), "mNumberOfColumnsPerRow==data.size()",
                       "data being appended must be"));
}

TEST_F(DatTest, EndsTheProcessOverRowsThatWouldBeLost) {
  const auto lose = [&] {
    Dat dat("a.dat", false, 0);
    dat.Initialize({"time"}, false, 8);
    dat.Append(Row({1}));
  };
  EXPECT_EXIT(lose(), testing::ExitedWithCode(255),
              "Attempting to destruct H5_ObjectDat with non-empty Cache");
}

}  // namespace
