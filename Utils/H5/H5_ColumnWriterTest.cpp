#include "Utils/H5/H5_ColumnWriter.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "Utils/H5/H5_ObjectDat.hpp"
#include "Utils/H5/TestSupport/PlainH5.hpp"

namespace {

using H5_Objects::Dat;

double Value(std::uint64_t column, std::uint64_t row) {
  return std::sqrt(static_cast<double>(row)) + 1000. * static_cast<double>(column);
}

// How rows come to a table, and in which pieces the stream is handed over.
struct Case {
  const char* mName;
  std::uint64_t mChunkRows;
  std::uint64_t mColumns;
  std::vector<std::uint64_t> mFlushes;  // rows written together
  std::uint64_t mPiece;
};

class ColumnWriterTest : public testing::Test {
 protected:
  // The number of threads is fixed at its first use, which is here.
  static void SetUpTestSuite() {
    setenv("VEXA_THREADS", "3", 1);
    ASSERT_EQ(NumberOfThreads(), 3u);
  }
  ColumnWriterTest() : mFile(PlainH5::File::Create(mDir / "t.h5")) {}

  // Writes rows [first, first + rows) of all columns piece by piece.
  static void Stream(ColumnWriter& writer, std::uint64_t first, std::uint64_t rows,
                     const Case& each) {
    const std::uint64_t total = rows * each.mColumns;
    for (std::uint64_t done = 0; done < total;) {
      const std::uint64_t count = std::min(each.mPiece, total - done);
      double* const values = writer.Room(count).mpValues;
      for (std::uint64_t i = 0; i < count; ++i, ++done) {
        values[i] = Value(done / rows, first + done % rows);
      }
    }
  }

  PlainH5::TempDir mDir;
  PlainH5::File mFile;
};

TEST_F(ColumnWriterTest, EveryValueArrivesWhateverThePieces) {
  const Case cases[] = {
      {"one chunk a column", 500000, 3, {500000}, 70001},
      {"many chunks", 131072, 1, {1500000}, 300000},
      {"pieces over several blocks", 20000, 2, {1000000}, 2000000},
      {"chunks left over", 30000, 3, {100000, 20000, 45000}, 33333},
      {"small flushes", 7, 3, {3, 4, 7, 20, 1, 14}, 5},
  };
  for (const Case& each : cases) {
    for (const bool compress : {false, true}) {
      const std::string name = std::string(each.mName) + (compress ? " gzip.dat" : ".dat");
      SCOPED_TRACE(name);
      Dat dat(name, false, 0);
      dat.Initialize(MyVector<std::string>(std::vector<std::string>(each.mColumns, "c")), compress,
                     each.mChunkRows);
      dat.OpenObject(mFile.Id());
      std::uint64_t rows = 0;
      for (const std::uint64_t flush : each.mFlushes) {
        dat.WriteManyStepsImmediately_(
            flush, [&](ColumnWriter& writer) { Stream(writer, rows, flush, each); });
        rows += flush;
      }
      dat.CloseObject();

      const PlainH5::Rows read = mFile.ReadTable(name);
      ASSERT_EQ(read.size(), rows);
      std::uint64_t wrong = 0;
      for (std::uint64_t r = 0; r < rows; ++r) {
        for (std::uint64_t c = 0; c < each.mColumns; ++c) {
          wrong += read[r][c] == Value(c, r) ? 0 : 1;
        }
      }
      EXPECT_EQ(wrong, 0u);
    }
  }
}

// Read and written in one stream, as a join does: neither may overtake the other.
TEST_F(ColumnWriterTest, PassesOnWhatIsStillBeingRead) {
  const std::uint64_t rows = 3000000;
  {
    Dat dat("in.dat", false, 0);
    dat.Initialize({"v"}, true, 131072);
    dat.OpenObject(mFile.Id());
    dat.WriteManyStepsImmediately_(rows, [&](ColumnWriter& writer) {
      Stream(writer, 0, rows, {"", 0, 1, {}, 1000000});
    });
    dat.CloseObject();
  }
  Dat in("in.dat", true, 0);
  in.OpenObject(mFile.Id());
  Dat out("out.dat", false, 0);
  out.Initialize({"v"}, true, 100000);
  out.OpenObject(mFile.Id());
  out.WriteManyStepsImmediately_(rows, [&](ColumnWriter& writer) {
    const std::uint64_t together = 400000;
    for (std::uint64_t first = 0; first < rows; first += together) {
      const RowRun run{first, std::min(first + together, rows)};
      const auto [values, reads] = writer.Room(run.Size());
      in.RetrieveRuns_(0, {&run, 1}, values, reads);
    }
  });
  in.CloseObject();
  out.CloseObject();
  EXPECT_TRUE(mFile.ReadTable("out.dat") == mFile.ReadTable("in.dat"));
}

}  // namespace
