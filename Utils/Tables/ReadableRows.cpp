#include "Utils/Tables/ReadableRows.hpp"

#include <algorithm>
#include <array>
#include <vector>

#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/Tables/ChunkReader.hpp"

namespace Tables {

namespace {

class Reader {
 public:
  Reader(const OpenTable& table, std::uint64_t columns, std::string& reason)
      : mTable(table),
        mEndColumn(std::min(columns, table.mLayout.mColumns)),
        mReason(reason),
        mColumns(std::max<std::uint64_t>(table.mLayout.mChunkColumns, 1)),
        mChunk(std::max<std::uint64_t>(table.mLayout.mChunkRows, 1)) {
    const std::uint64_t rows = std::max<std::uint64_t>(sWindowValues / mColumns, 1);
    mWindow = (rows + mChunk - 1) / mChunk * mChunk;
  }

  std::uint64_t Count() {
    std::uint64_t rows = mTable.mLayout.mRows;
    ForEachColumns([&](std::uint64_t first) {
      for (std::uint64_t row = 0; row < rows; row += mWindow) {
        rows = std::min(rows, Readable({first, Width(first), row, std::min(mWindow, rows - row)}));
      }
    });
    return WithoutZeros(rows);
  }

 private:
  static constexpr std::uint64_t sWindowValues = 1024 * 1024;

  // Columns whose values lie in the same chunks are read together.
  template <class Action>
  void ForEachColumns(const Action& action) const {
    for (std::uint64_t first = 0; first < mEndColumn; first += mColumns) {
      action(first);
    }
  }
  std::uint64_t Width(std::uint64_t first) const { return std::min(mColumns, mEndColumn - first); }

  bool IsStored(std::uint64_t row, std::uint64_t column) const {
    const Vexa_H5::MuteH5Errors mute;
    const std::array<hsize_t, 2> offset = {row, column};
    hsize_t bytes = 0;
    return mTable.mLayout.mChunkRows == 0 ||
           (H5Dget_chunk_storage_size(mTable.mDataset_id, offset.data(), &bytes) >= 0 && bytes > 0);
  }

  bool Read(const ColumnBlock& block) {
    for (std::uint64_t row = block.mFirstRow; row < block.mFirstRow + block.mRows; row += mChunk) {
      if (!IsStored(row, block.mFirstColumn)) {
        mReason = "a chunk was never written";
        return false;
      }
    }
    try {
      mValues.resize(block.mColumns * block.mRows);
      ReadColumns(mTable, block, mValues.data());
      return true;
    } catch (const CodeError& error) {
      mReason = error.Reason();
      mReason.resize(std::min(mReason.find(sSalvageAdvice), mReason.size()));
      return false;
    }
  }

  // Returns the row up to which a block, which begins where a chunk does, can be read.
  std::uint64_t Readable(const ColumnBlock& block) {
    if (Read(block)) {
      return block.mFirstRow + block.mRows;
    }
    for (std::uint64_t row = block.mFirstRow; row < block.mFirstRow + block.mRows; row += mChunk) {
      const std::uint64_t rows = std::min(mChunk, block.mFirstRow + block.mRows - row);
      if (!Read({block.mFirstColumn, block.mColumns, row, rows})) {
        return row;
      }
    }
    return block.mFirstRow + block.mRows;
  }

  // A table may be long enough for rows before these are in its chunks.
  std::uint64_t WithoutZeros(std::uint64_t rows) {
    std::uint64_t end = rows;
    const bool hasTimes = mEndColumn > 1;  // values of steps may all be zero
    while (hasTimes && end > 1) {
      const std::uint64_t first = (end - 1) / mWindow * mWindow;
      const std::uint64_t written = std::max<std::uint64_t>(EndOfWritten(first, end), 1);
      if (written > first) {
        end = written;
        break;
      }
      end = first;
    }
    mReason = end < rows ? "rows were never written" : mReason;
    return end;
  }

  // Returns the row after the last in [first, end) that is not all zeros; `first` if there is none.
  std::uint64_t EndOfWritten(std::uint64_t first, std::uint64_t end) {
    std::uint64_t written = first;
    ForEachColumns([&](std::uint64_t column) {
      if (written == end) {
        return;
      }
      const std::uint64_t rows = end - first;
      Read({column, Width(column), first, rows});
      for (std::uint64_t i = 0; i < mValues.size(); ++i) {
        written = mValues[i] != 0 ? std::max(written, first + i % rows + 1) : written;
      }
    });
    return written;
  }

  const OpenTable& mTable;
  std::uint64_t mEndColumn;
  std::string& mReason;
  std::uint64_t mColumns;
  std::uint64_t mChunk;
  std::uint64_t mWindow;
  std::vector<double> mValues;
};

}  // namespace

std::uint64_t CountReadableRows(const OpenTable& table, std::uint64_t columns,
                                std::string& reason) {
  return Reader(table, columns, reason).Count();
}

}  // namespace Tables
