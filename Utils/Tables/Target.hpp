// Which values of a table a reader is to put where.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#pragma GCC visibility push(default)

namespace Tables {

/// Rows of a table that follow one another, and where the values of the first wanted column go.
struct RowSlice {
  std::uint64_t mRow;
  std::uint64_t mRows;
  double* mpValues;
};

/// Values of a table that are wanted, and where they go: the values of each further column go
/// mStride behind those of the column before. Slices ascend, and none is empty.
struct Target {
  std::uint64_t mFirstColumn = 0;
  std::uint64_t mColumns = 0;
  std::uint64_t mStride = 0;
  std::vector<RowSlice> mSlices;
};

/// Takes the rows that lie before row `end` away from the front of `rest`, and returns them.
std::vector<RowSlice> TakeBefore(std::uint64_t end, std::span<RowSlice>& rest);

/// Copies the target's columns of `slice` from rows of `rowLength` values that follow one another;
/// `rowMajor` is the first wanted value of the first row.
void Transpose(const double* rowMajor, std::uint64_t rowLength, const RowSlice& slice,
               const Target& target);

}  // namespace Tables

#pragma GCC visibility pop
