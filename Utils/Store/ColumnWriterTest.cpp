#include "Utils/Tables/ColumnWriter.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <numeric>
#include <string>
#include <vector>

#include "Utils/HDF5/TestSupport/PlainH5.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"

namespace {

using H5_Objects::Dat;

// The number of threads is fixed at its first use.
const int sThreadsAreSet = setenv("VEXA_THREADS", "3", 1);

PlainH5::Rows Numbers(std::size_t rows, std::size_t columns) {
  PlainH5::Rows table(rows);
  for (std::size_t r = 0; r < rows; ++r) {
    for (std::size_t c = 0; c < columns; ++c) {
      table[r].push_back(std::round(10 * std::sqrt(r)) + 10000. * c);
    }
  }
  return table;
}

// Tables are copied in one stream, as a join does: neither reading nor writing may overtake the
// other, whatever the layout of the input, the rows written together and those read together.
TEST(ColumnWriterTest, EveryValueArrivesFromEveryLayoutInPiecesOfAnySize) {
  ASSERT_EQ(Vexa::NumberOfThreads(), 3u);
  const PlainH5::TempDir dir;
  auto file = PlainH5::File::Create(dir / "t.h5");
  const struct {
    const char* mName;
    PlainH5::TableOptions mInput;
    std::uint64_t mColumns;
    std::uint64_t mChunkRows;
    std::vector<std::uint64_t> mFlushes;
    std::uint64_t mTogether;
  } cases[] = {
      {"one chunk a column", {.mChunk = {70000, 1}, .mCompress = true}, 2, 500000, {500000}, 70001},
      {"contiguous", {.mChunk = {}}, 3, 30000, {100000, 20000, 45000}, 33333},
      {"chunks left over", {-1, {900, 1}, true}, 3, 30000, {100000, 20000, 45000}, 33333},
      {"rows", {.mChunk = {1, 3}}, 3, 7, {3, 4, 7, 20, 1, 14}, 5},
      {"blocks across edges", {-1, {7, 2}, true}, 3, 7, {3, 4, 7, 20, 1, 14}, 5},
      {"float32", {H5T_IEEE_F32LE, {16, 1}, true}, 3, 16, {50}, 12},
      {"big-endian integers", {H5T_STD_I32BE, {64, 3}}, 3, 16, {50}, 50}};
  for (const auto& [name, input, columns, chunkRows, flushes, together] : cases) {
    const PlainH5::Rows table =
        Numbers(std::accumulate(flushes.begin(), flushes.end(), std::size_t{0}), columns);
    file.Table(name, table, input);
    Dat in(name, true, 0);
    in.OpenObject(file.Id());
    Dat out(std::string(name) + ".dat", false, 0);
    out.Initialize(in.GetLegend(), input.mCompress, chunkRows);
    out.OpenObject(file.Id());
    std::uint64_t first = 0;
    for (const std::uint64_t rows : flushes) {
      const std::uint64_t end = first + rows;
      out.WriteManyStepsImmediately_(rows, [&](Tables::ColumnWriter& writer) {
        for (std::uint64_t c = 0; c < columns; ++c) {
          for (std::uint64_t at = first; at < end; at += together) {
            const std::uint64_t stop = std::min(at + together, end);
            const Tables::RowRun runs[] = {{at, at + 1}, {at + 1, stop}};
            const auto [values, reads] = writer.Room(stop - at);
            in.RetrieveRuns_(static_cast<int>(c), {runs, stop > at + 1 ? 2U : 1U}, values, reads);
          }
        }
      });
      first = end;
    }
    in.CloseObject();
    out.CloseObject();
    EXPECT_TRUE(file.ReadTable(std::string(name) + ".dat") == table) << name;
  }
}

}  // namespace
