#include "Utils/Tables/WriteRows.hpp"

#include <algorithm>
#include <vector>

#include "Utils/ChunkCodec/ChunkEncoder.hpp"
#include "Utils/ChunkCodec/ShortChunk.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Tables/ColumnWriter.hpp"
#include "Utils/Tables/LibraryAccess.hpp"

namespace Tables {

namespace {

// Above this, columns are moved as blocks, and encoded by all threads.
constexpr std::uint64_t sMostValues = 64 * 1024;

// Rows that lie in memory row after row.
struct Rows {
  std::uint64_t mFirst;
  std::uint64_t mEnd;
  std::uint64_t mColumns;
  const double* mpValues;

  void CopyColumn(std::uint64_t column, const RowRun& run, double* to) const {
    for (std::uint64_t row = run.mFirst; row < run.mOnePastLast; ++row) {
      *to++ = mpValues[(row - mFirst) * mColumns + column];
    }
  }
};

// Writes the rows as chunks that our codec makes, one after the other.
void WriteChunks(const OpenTable& table, const Rows& rows) {
  const std::uint64_t chunkRows = table.mLayout.mChunkRows;
  const auto& encode = chunkRows <= ChunkCodec::sMostValuesOfShortChunk
                           ? ChunkCodec::EncodeShortChunk
                           : ChunkCodec::EncodeChunk;
  std::vector<double> chunk(chunkRows);
  for (std::uint64_t c = 0; c < rows.mColumns; ++c) {
    for (std::uint64_t row = rows.mFirst / chunkRows * chunkRows; row < rows.mEnd;
         row += chunkRows) {
      const std::uint64_t known = rows.mFirst > row ? rows.mFirst - row : 0;
      const std::uint64_t end = std::min(row + chunkRows, rows.mEnd);
      ReadColumns(table, {c, 1, row, known}, chunk.data());
      rows.CopyColumn(c, {row + known, end}, chunk.data() + known);
      std::fill(chunk.begin() + static_cast<std::ptrdiff_t>(end - row), chunk.end(), 0.);
      WriteStoredChunk(table, row, c, encode(chunk, table.mLayout.mFilters));
    }
  }
}

// Writes the rows as columns: those that complete a chunk, then the others.
void WriteColumns(const OpenTable& table, const Rows& rows) {
  const std::uint64_t chunkRows = std::max<std::uint64_t>(table.mLayout.mChunkRows, 1);
  const std::uint64_t missing = (chunkRows - rows.mFirst % chunkRows) % chunkRows;
  const std::uint64_t middle = std::min(rows.mFirst + missing, rows.mEnd);
  for (const RowRun& run : {RowRun{rows.mFirst, middle}, RowRun{middle, rows.mEnd}}) {
    if (run.Size() > 0) {
      ColumnWriter writer(table, run.mFirst, run.Size());
      for (std::uint64_t c = 0; c < rows.mColumns; ++c) {
        rows.CopyColumn(c, run, writer.Room(run.Size()).mpValues);
      }
      writer.Finish();
    }
  }
}

}  // namespace

void WriteRows(const OpenTable& table, std::uint64_t firstRow, std::span<const double> rowMajor) {
  const TableLayout& layout = table.mLayout;
  const std::uint64_t count = rowMajor.size() / layout.mColumns;
  const Rows rows{firstRow, firstRow + count, layout.mColumns, rowMajor.data()};
  if (rowMajor.size() > sMostValues) {
    WriteColumns(table, rows);
  } else if (layout.mMovesChunks && !layout.mFilters.empty() && layout.mChunkRows <= sMostValues) {
    WriteChunks(table, rows);
  } else {
    WriteByLibrary(table, {0, layout.mColumns, firstRow, count}, rowMajor.data());
  }
}

}  // namespace Tables
