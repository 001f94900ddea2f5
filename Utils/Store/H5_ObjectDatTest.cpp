#include "Utils/Store/H5_ObjectDat.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <tuple>

#include "Utils/HDF5/TestSupport/PlainH5.hpp"

namespace {

using H5_Objects::Dat;
using PlainH5::IsReport;
using PlainH5::ReportOf;
using PlainH5::Rows;

// The tests open and close their tables by hand, in a group that stands for the file.
class DatTest : public testing::Test {
 protected:
  PlainH5::TempDir mDir;
  PlainH5::File mFile = PlainH5::File::Create(mDir / "t.h5");
};

TEST_F(DatTest, WritesTheLayoutThatOthersRead) {
  for (const bool compress : {false, true}) {
    Rows rows;
    Dat dat(compress ? "gzip.dat" : "plain.dat", false, 0);
    dat.Initialize({"time", "x"}, compress, 4);
    EXPECT_EQ(dat.SizeOfCache(), 5u) << "the legend's characters";
    for (double t = 0; t < 5; ++t) {
      dat.Append({t, 10 + t});
      rows.push_back({t, 10 + t});
    }
    dat.OpenObject(mFile.Id());
    EXPECT_EQ(dat.SizeOfCache(), 80u);
    EXPECT_EQ(dat.GetExtents()[0], 5u);
    dat.WriteCache();
    dat.Append({5, 15});
    // These rows make a whole chunk, but begin inside one.
    dat.WriteManyStepsImmediately_(4, [](Tables::ColumnWriter& writer) {
      writer.Append(std::vector<double>{6, 7, 8, 9, 16, 17, 18, 19});
    });
    rows.insert(rows.end(), {{5, 15}, {6, 16}, {7, 17}, {8, 18}, {9, 19}});
    // Of what cannot be written nothing is left.
    EXPECT_THROW(dat.WriteManyStepsImmediately_(1, [](auto&) { throw 1; }), int);
    dat.WriteManyStepsImmediately({});
    dat.CloseObject();
    const std::string name = compress ? "gzip.dat" : "plain.dat";
    EXPECT_EQ(mFile.ReadTable(name), rows);
    EXPECT_EQ(mFile.Chunk(name), (PlainH5::Dims{4, 1}));
    EXPECT_EQ(mFile.ReadStringAttribute(name, "Legend"), (PlainH5::Strings{"time", "x"}));
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
    EXPECT_EQ(dat.GetLegend()[2], "undef 2");
    const MyVector<MyVector<double>> all = dat.RetrieveData();
    EXPECT_TRUE(std::ranges::equal(
        all, rows, {}, {}, [](const std::vector<double>& row) { return MyVector<double>(row); }));
    // The runs lie within a chunk, over several, and next to one another.
    const std::vector<Tables::RowRun> runs = {{1, 2}, {3, 4}, {5, 38}, {38, 40}, {48, 50}};
    std::vector<double> picked(1 + 1 + 33 + 2 + 2);
    Tables::PendingReads reads;
    dat.RetrieveRuns_(1, runs, picked.data(), reads);
    reads.Finish();
    auto next = picked.begin();
    for (const Tables::RowRun& run : runs) {
      for (std::uint64_t r = run.mFirst; r < run.mOnePastLast; ++r) {
        EXPECT_EQ(*next++, rows[r][1]);
      }
    }
    dat.CloseObject();
  }
}

TEST_F(DatTest, Refusals) {
  mFile.Table("there.dat", {{0, 1}});
  Dat dat("there.dat", true, 0);
  dat.OpenObject(mFile.Id());
  dat.Append({2, 3});
  const auto retrieve = [&](int column, int first, int onePastLast) {
    return [=, &dat] { dat.RetrieveColumns({column}, first, onePastLast); };
  };
  const std::string range = "Dat::RetrieveColumns ";
  const std::tuple<std::function<void()>, const char*, std::string> refusals[] = {
      {[] { Dat("a.dat", false, 0).Append({1}); }, "IsInitialized()",
       "H5_Objects::Dat must be initialized before appending\nName=a.dat"},
      {[&] { dat.Append({1}); }, "static_cast<int>(mExtents[1])==data.Size()",
       "data being appended inconsistent with Extents\nName=there.dat"},
      {retrieve(0, 0, 3), "one_past_last <= GetExtents()[0]", range},
      {retrieve(0, 0, 2), "one_past_last <= mExtents[0]", range},  // reaches into the cache
      {retrieve(0, 1, 0), "first <= one_past_last", range},
      {retrieve(2, 0, 1), "columns[j]>=0 && static_cast<unsigned long long>(columns[j])<", range},
      {[] {
         Dat widths("there.dat", true, 0);
         widths.Append({1, 2, 3});
         widths.Append({1});
       },
       "mNumberOfColumnsPerRow==data.size()", "data being appended must be"},
      {[&] {
         dat.WriteManyStepsImmediately({1, 2});
       },
       "data.empty() || mExtents[1]==1",
       "WriteManyStepsImmediately needs a dataset of one column"}};
  for (const auto& [action, condition, message] : refusals) {
    const std::string report = ReportOf(action);
    EXPECT_TRUE(IsReport(report, condition, message)) << message << report;
  }
  EXPECT_EQ(dat.RetrieveColumns({1, 0}, 1, 2), (MyVector<MyVector<double>>{{3}, {2}}));
  dat.CloseObject();
  const auto lose = [] {
    Dat lost("a.dat", false, 0);
    lost.Initialize({"time"}, false, 8);
    lost.Append({1});
  };
  EXPECT_EXIT(lose(), testing::ExitedWithCode(255),
              "Attempting to destruct H5_ObjectDat with non-empty Cache");
}

}  // namespace
