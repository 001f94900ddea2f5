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
class Rows {
 public:
  Rows(const OpenTable& table, std::uint64_t firstRow, std::span<const double> rowMajor)
      : mTable(table),
        mColumns(table.mLayout.mColumns),
        mFirstRow(firstRow),
        mEnd(firstRow + rowMajor.size() / mColumns),
        mValues(rowMajor) {}

  // Writes the rows as chunks that our codec makes, one after the other.
  void WriteChunks() const {
    const std::uint64_t chunkRows = mTable.mLayout.mChunkRows;
    std::vector<double> chunk(chunkRows);
    for (std::uint64_t c = 0; c < mColumns; ++c) {
      for (std::uint64_t row = mFirstRow / chunkRows * chunkRows; row < mEnd; row += chunkRows) {
        const std::uint64_t known = mFirstRow > row ? mFirstRow - row : 0;
        const std::uint64_t end = std::min(row + chunkRows, mEnd);
        ReadColumns(mTable, {c, 1, row, known}, chunk.data());
        CopyColumn(c, row + known, end, chunk.data() + known);
        std::fill(chunk.begin() + static_cast<std::ptrdiff_t>(end - row), chunk.end(), 0.);
        WriteStoredChunk(mTable, row, c, Encode(chunk));
      }
    }
  }

  // Writes the rows through the library in one call.
  void WriteAtOnce() const { WriteRowsByLibrary(mTable, mFirstRow, mValues); }

  // Writes the rows as columns: those that complete a chunk, then the others.
  void WriteColumns() const {
    const std::uint64_t chunkRows = std::max<std::uint64_t>(mTable.mLayout.mChunkRows, 1);
    const std::uint64_t missing = (chunkRows - mFirstRow % chunkRows) % chunkRows;
    for (const auto [first, end] : {RowRun{mFirstRow, std::min(mFirstRow + missing, mEnd)},
                                    RowRun{std::min(mFirstRow + missing, mEnd), mEnd}}) {
      if (first < end) {
        ColumnWriter writer(mTable, first, end - first);
        for (std::uint64_t c = 0; c < mColumns; ++c) {
          CopyColumn(c, first, end, writer.Room(end - first).mpValues);
        }
        writer.Finish();
      }
    }
  }

 private:
  std::vector<std::byte> Encode(const std::vector<double>& chunk) const {
    const ChunkCodec::Filters& filters = mTable.mLayout.mFilters;
    return chunk.size() <= ChunkCodec::sMostValuesOfShortChunk
               ? ChunkCodec::EncodeShortChunk(chunk, filters)
               : ChunkCodec::EncodeChunk(chunk, filters);
  }

  void CopyColumn(std::uint64_t column, std::uint64_t first, std::uint64_t end, double* to) const {
    const double* from = mValues.data() + (first - mFirstRow) * mColumns + column;
    for (std::uint64_t row = first; row < end; ++row, from += mColumns) {
      *to++ = *from;
    }
  }

  const OpenTable& mTable;
  std::uint64_t mColumns;
  std::uint64_t mFirstRow;
  std::uint64_t mEnd;
  std::span<const double> mValues;
};

}  // namespace

void WriteRows(const OpenTable& table, std::uint64_t firstRow, std::span<const double> rowMajor) {
  const TableLayout& layout = table.mLayout;
  const Rows rows(table, firstRow, rowMajor);
  if (rowMajor.size() > sMostValues) {
    rows.WriteColumns();
  } else if (layout.mMovesChunks && !layout.mFilters.empty() && layout.mChunkRows <= sMostValues) {
    rows.WriteChunks();
  } else {
    rows.WriteAtOnce();
  }
}

}  // namespace Tables
