#include "Utils/Tables/ColumnWriter.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "Utils/HDF5/TestSupport/PlainH5.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"

namespace {

using H5_Objects::Dat;

double Value(std::uint64_t column, std::uint64_t row) {
  return std::sqrt(static_cast<double>(row)) + 1000. * static_cast<double>(column);
}

std::uint64_t WrongValues(const PlainH5::Rows& rows) {
  std::uint64_t wrong = 0;
  for (std::size_t r = 0; r < rows.size(); ++r) {
    for (std::size_t c = 0; c < rows[r].size(); ++c) {
      wrong += rows[r][c] == Value(c, r) ? 0 : 1;
    }
  }
  return wrong;
}

TEST(ColumnWriterTest, EveryValueArrivesWhateverThePieces) {
  setenv("VEXA_THREADS", "3", 1);  // the number of threads is fixed at its first use, which is here
  ASSERT_EQ(NumberOfThreads(), 3u);
  const PlainH5::TempDir dir;
  const auto file = PlainH5::File::Create(dir / "t.h5");
  const struct {
    const char* mName;
    std::uint64_t mChunkRows;
    std::uint64_t mColumns;
    std::vector<std::uint64_t> mFlushes;  // rows written together
    std::uint64_t mPiece;                 // values handed over together
    bool mCompress;
  } cases[] = {
      {"one chunk a column", 500000, 3, {500000}, 70001, true},
      {"many chunks", 131072, 1, {1500000}, 300000, true},
      {"pieces over several blocks", 20000, 2, {1000000}, 2000000, true},
      {"chunks left over", 30000, 3, {100000, 20000, 45000}, 33333, true},
      {"without filters", 30000, 3, {100000, 20000, 45000}, 33333, false},
      {"small flushes", 7, 3, {3, 4, 7, 20, 1, 14}, 5, true},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.mName);
    const std::string name = std::string(each.mName) + ".dat";
    Dat dat(name, false, 0);
    dat.Initialize(MyVector<std::string>(std::vector<std::string>(each.mColumns, "c")),
                   each.mCompress, each.mChunkRows);
    dat.OpenObject(file.Id());
    std::uint64_t first = 0;
    for (const std::uint64_t rows : each.mFlushes) {
      dat.WriteManyStepsImmediately_(rows, [&](Tables::ColumnWriter& writer) {
        const std::uint64_t total = rows * each.mColumns;
        for (std::uint64_t done = 0; done < total;) {
          const std::uint64_t count = std::min(each.mPiece, total - done);
          double* const values = writer.Room(count).mpValues;
          for (std::uint64_t i = 0; i < count; ++i, ++done) {
            values[i] = Value(done / rows, first + done % rows);
          }
        }
      });
      first += rows;
    }
    dat.CloseObject();
    const PlainH5::Rows read = file.ReadTable(name);
    EXPECT_EQ(read.size(), first);
    EXPECT_EQ(WrongValues(read), 0u);
  }

  // Read and written in one stream, as a join does: neither may overtake the other.
  Dat in("many chunks.dat", true, 0);
  in.OpenObject(file.Id());
  Dat out("out.dat", false, 0);
  out.Initialize({"v"}, true, 100000);
  out.OpenObject(file.Id());
  const std::uint64_t rows = in.GetExtents()[0];
  out.WriteManyStepsImmediately_(rows, [&](Tables::ColumnWriter& writer) {
    const std::uint64_t together = 400000;
    for (std::uint64_t first = 0; first < rows; first += together) {
      const Tables::RowRun run{first, std::min(first + together, rows)};
      const auto [values, reads] = writer.Room(run.Size());
      in.RetrieveRuns_(0, {&run, 1}, values, reads);
    }
  });
  in.CloseObject();
  out.CloseObject();
  const PlainH5::Rows read = file.ReadTable("out.dat");
  EXPECT_EQ(read.size(), rows);
  EXPECT_EQ(WrongValues(read), 0u);
}

}  // namespace
