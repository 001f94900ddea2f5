#include "Utils/Tables/LibraryAccess.hpp"

#include <algorithm>
#include <vector>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/Handle.hpp"

namespace Tables {

namespace {

constexpr std::uint64_t sValuesPerPass = 128 * 1024;

// A block of the dataset in the library's file and memory spaces. The memory space has rank 2 like
// the file's: with a one-dimensional one the library is ten times slower.
struct Selection {
  Selection(const OpenTable& table, const ColumnBlock& block)
      : mFile(H5Dget_space(table.mDataset_id)) {
    REQUIRE_FOR_CALLER(mFile>=0, "H5Dget_space failed");
    const hsize_t start[2] = {block.mFirstRow, block.mFirstColumn};
    const hsize_t count[2] = {block.mRows, block.mColumns};
    const herr_t err = H5Sselect_hyperslab(mFile, H5S_SELECT_SET, start, nullptr, count, nullptr);
    REQUIRE_FOR_CALLER(err>=0, "H5Sselect_hyperslab failed");
    mMemory = Vexa_H5::DataspaceHandle(H5Screate_simple(2, count, nullptr));
    REQUIRE_FOR_CALLER(mMemory>=0, "H5Screate_simple failed");
  }

  Vexa_H5::DataspaceHandle mFile;
  Vexa_H5::DataspaceHandle mMemory;
};

// Values come as they lie in the file: row after row.
void ReadBlock(const OpenTable& table, const ColumnBlock& block, double* values) {
  const Selection selection(table, block);
  const herr_t err = table.mTrace(4,
                                  H5Dread(table.mDataset_id, H5T_NATIVE_DOUBLE, selection.mMemory,
                                          selection.mFile, H5P_DEFAULT, values),
                                  "H5Dread(", table.mDataset_id, ", ...)");
  REQUIRE_FOR_CALLER(err>=0, "H5Dread failed for name=" << table.mName);
}

}  // namespace

void ReadByLibrary(const OpenTable& table, Target target) {
  // Several columns, and short runs of one, are read in windows of whole chunks, of about a
  // mebibyte at least, along with what is between them.
  const std::uint64_t columns = target.mColumns;
  const std::uint64_t chunkRows = std::max<std::uint64_t>(table.mLayout.mChunkRows, 1);
  const std::uint64_t window =
      std::max<std::uint64_t>(sValuesPerPass / columns / chunkRows, 1) * chunkRows;
  std::vector<double> rowMajor;
  std::span<RowSlice> rest(target.mSlices);
  while (!rest.empty()) {
    const std::uint64_t first = rest[0].mRow;
    const std::uint64_t windowEnd = (first / window + 1) * window;
    const std::uint64_t end = columns == 1 ? std::max(windowEnd, first + rest[0].mRows) : windowEnd;
    const std::vector<RowSlice> slices = TakeBefore(end, rest);
    const std::uint64_t rows = slices.back().mRow + slices.back().mRows - first;
    const ColumnBlock block{target.mFirstColumn, columns, first, rows};
    if (columns == 1 && slices.size() == 1) {
      ReadBlock(table, block, slices[0].mpValues);
      continue;
    }
    if (rowMajor.size() < rows * columns) {
      rowMajor = {};
      rowMajor.resize(rows * columns);
    }
    ReadBlock(table, block, rowMajor.data());
    for (const RowSlice& slice : slices) {
      Transpose(&rowMajor[(slice.mRow - first) * columns], columns, slice, target);
    }
  }
}

void WriteByLibrary(const OpenTable& table, const ColumnBlock& block, const double* rowMajor) {
  const Selection selection(table, block);
  const herr_t err = table.mTrace(4,
                                  H5Dwrite(table.mDataset_id, H5T_NATIVE_DOUBLE, selection.mMemory,
                                           selection.mFile, H5P_DEFAULT, rowMajor),
                                  "H5Dwrite(", table.mDataset_id, ", ...)");
  REQUIRE_FOR_CALLER(err>=0, "H5Dwrite failed");
}

}  // namespace Tables
