#include "Utils/Tables/Target.hpp"

#include <algorithm>

namespace Tables {

std::vector<RowSlice> TakeBefore(std::uint64_t end, std::span<RowSlice>& rest) {
  std::vector<RowSlice> taken;
  while (!rest.empty() && rest[0].mRow < end) {
    RowSlice& slice = rest[0];
    const std::uint64_t rows = std::min(slice.mRows, end - slice.mRow);
    taken.push_back({slice.mRow, rows, slice.mpValues});
    slice = {slice.mRow + rows, slice.mRows - rows, slice.mpValues + rows};
    if (slice.mRows == 0) {
      rest = rest.subspan(1);
    }
  }
  return taken;
}

void Transpose(const double* rowMajor, std::uint64_t rowLength, const RowSlice& slice,
               const Target& target) {
  for (std::uint64_t c = 0; c < target.mColumns; ++c) {
    double* const column = slice.mpValues + c * target.mStride;
    for (std::uint64_t r = 0; r < slice.mRows; ++r) {
      column[r] = rowMajor[r * rowLength + c];
    }
  }
}

}  // namespace Tables
