#include "Executables/KelmorInfo/CompareRows.hpp"

#include <algorithm>
#include <cstring>
#include <memory>

namespace {

// Values in memory at a time: of a joined table, and as many of an input.
constexpr std::uint64_t sBlockValues = 4 * 1024 * 1024;

// As many whole chunks of rows as make a block of that many columns.
std::uint64_t RowsPerBlock(const Tables::TableLayout& layout, std::uint64_t columns) {
  const std::uint64_t chunk = std::max<std::uint64_t>(layout.mChunkRows, 1);
  return std::max<std::uint64_t>(sBlockValues / columns / chunk, 1) * chunk;
}

// How many columns make a block with the rows of one chunk: those of a chunk at least.
std::uint64_t ColumnsPerBlock(const Tables::TableLayout& layout) {
  const std::uint64_t rows =
      std::max<std::uint64_t>(std::min<std::uint64_t>(layout.mChunkRows, layout.mRows), 1);
  return std::max<std::uint64_t>({sBlockValues / rows, layout.mChunkColumns, 1});
}

// Rows of some columns of an input in memory: those that are asked for and, up to the end of a
// block, those after them.
class Window {
 public:
  Window(const H5_Objects::Dat& input, std::uint64_t firstColumn, std::uint64_t columns,
         std::uint64_t end)
      : mInput(input),
        mFirstColumn(firstColumn),
        mColumns(columns),
        mEnd(end),
        mBlockRows(RowsPerBlock(input.Layout(), columns)) {}

  /// Sees to it that the row is there; returns how many are, from it on.
  std::uint64_t Reach(std::uint64_t row) {
    if (row >= mOnePastLast) {
      mFirst = row;
      mOnePastLast = std::min((row / mBlockRows + 1) * mBlockRows, mEnd);
      const std::uint64_t rows = mOnePastLast - mFirst;
      mValues.reset();
      mValues = std::make_unique_for_overwrite<double[]>(rows * mColumns);
      mInput.RetrieveColumns_({mFirstColumn, mColumns, mFirst, rows}, mValues.get());
    }
    return mOnePastLast - row;
  }

  const double* At(std::uint64_t column, std::uint64_t row) const {
    return mValues.get() + column * (mOnePastLast - mFirst) + (row - mFirst);
  }

 private:
  const H5_Objects::Dat& mInput;
  std::uint64_t mFirstColumn;
  std::uint64_t mColumns;
  std::uint64_t mEnd;  // no row behind it is wanted
  std::uint64_t mBlockRows;
  std::unique_ptr<double[]> mValues;
  std::uint64_t mFirst = 0;
  std::uint64_t mOnePastLast = 0;
};

// Compares `columns` columns of the block, the first of which is its `first`-th.
std::optional<RowDifference> CompareColumns(const H5_Objects::Dat& input,
                                            const std::vector<JoinedPart>& parts,
                                            const JoinedBlock& joined, std::uint64_t first,
                                            std::uint64_t columns) {
  const Tables::ColumnBlock& block = joined.mWhere;
  Window window(input, block.mFirstColumn + first, columns, parts.back().mRow + parts.back().mRows);
  for (JoinedPart part : parts) {
    while (part.mRows > 0) {
      const std::uint64_t count = std::min(part.mRows, window.Reach(part.mRow));
      for (std::uint64_t c = 0; c < columns; ++c) {
        const double* values = window.At(c, part.mRow);
        const double* there =
            joined.mValues + (first + c) * block.mRows + (part.mJoinedRow - block.mFirstRow);
        if (AreSameBits(values, there, count)) {
          continue;
        }
        std::uint64_t i = 0;
        while (AreSameBits(values + i, there + i, 1)) {
          ++i;
        }
        return RowDifference{block.mFirstColumn + first + c, part.mRow + i, part.mJoinedRow + i,
                             values[i], there[i]};
      }
      part = {part.mRow + count, part.mJoinedRow + count, part.mRows - count};
    }
  }
  return {};
}

}  // namespace

bool AreSameBits(const double* a, const double* b, std::uint64_t count) {
  return std::memcmp(a, b, count * sizeof(double)) == 0;
}

std::vector<Tables::ColumnBlock> BlocksOf(const Tables::TableLayout& layout) {
  std::vector<Tables::ColumnBlock> blocks;
  const std::uint64_t most =
      layout.mRows * layout.mColumns <= sBlockValues ? layout.mRows : RowsPerBlock(layout, 1);
  const std::uint64_t rows =
      std::clamp<std::uint64_t>(most, 1, std::max<std::uint64_t>(layout.mRows, 1));
  const std::uint64_t columns = std::max<std::uint64_t>(sBlockValues / rows, 1);
  for (std::uint64_t row = 0; row < layout.mRows; row += rows) {
    for (std::uint64_t column = 0; column < layout.mColumns; column += columns) {
      blocks.push_back({column, std::min(columns, layout.mColumns - column), row,
                        std::min(rows, layout.mRows - row)});
    }
  }
  return blocks;
}

std::vector<JoinedPart> PartsWithin(const std::vector<StepRun>& kept,
                                    const Tables::ColumnBlock& block, std::uint64_t& position) {
  std::vector<JoinedPart> parts;
  for (const StepRun& run : kept) {
    const std::uint64_t begin = std::max(position, block.mFirstRow);
    const std::uint64_t end = std::min(position + run.Size(), block.mFirstRow + block.mRows);
    if (begin < end) {
      parts.push_back({run.mFirst + (begin - position), begin, end - begin});
    }
    position += run.Size();
  }
  return parts;
}

std::optional<RowDifference> CompareParts(const H5_Objects::Dat& input,
                                          const std::vector<JoinedPart>& parts,
                                          const JoinedBlock& joined) {
  const std::uint64_t columns = joined.mWhere.mColumns;
  // Rows that were kept may be few, and what lies between them much.
  const std::uint64_t together = ColumnsPerBlock(input.Layout());
  for (std::uint64_t first = 0; first < columns; first += together) {
    const std::uint64_t count = std::min(together, columns - first);
    if (const auto difference = CompareColumns(input, parts, joined, first, count)) {
      return difference;
    }
  }
  return {};
}
