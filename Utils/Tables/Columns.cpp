#include "Utils/Tables/Columns.hpp"

#include <algorithm>
#include <memory>
#include <optional>
#include <tuple>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/NumberType.hpp"
#include "Utils/HDF5/StoredChunks.hpp"
#include "Utils/Tables/Chunks.hpp"
#include "Utils/Tables/PendingReads.hpp"
#include "Utils/Tables/RawChunks.hpp"
#include "Utils/Tables/Storage.hpp"

namespace Tables {

namespace {

constexpr std::uint64_t sValuesPerPass = 128 * 1024;

// Selects a block of the dataset and hands the library its file and memory spaces. The memory
// space has rank 2 like the file's: with a one-dimensional one the library is ten times slower.
class Selection {
 public:
  explicit Selection(hid_t dataset_id) : mFile(H5Dget_space(dataset_id)) {
    REQUIRE_FOR_CALLER(mFile>=0, "H5Dget_space failed");
  }

  void Select(const ColumnBlock& block) {
    const hsize_t start[2] = {block.mFirstRow, block.mFirstColumn};
    const hsize_t count[2] = {block.mRows, block.mColumns};
    herr_t err = H5Sselect_hyperslab(mFile, H5S_SELECT_SET, start, nullptr, count, nullptr);
    REQUIRE_FOR_CALLER(err>=0, "H5Sselect_hyperslab failed");
    if (mMemory < 0) {
      mMemory = Vexa_H5::DataspaceHandle(H5Screate_simple(2, count, nullptr));
      REQUIRE_FOR_CALLER(mMemory>=0, "H5Screate_simple failed");
    } else {
      err = H5Sset_extent_simple(mMemory, 2, count, nullptr);
      REQUIRE_FOR_CALLER(err>=0, "H5Sset_extent_simple failed");
    }
  }

  hid_t FileSpace() const { return mFile; }
  hid_t MemorySpace() const { return mMemory; }

  void Close() {
    if (mMemory >= 0) {
      mMemory.Close();
    }
    mFile.Close();
  }

 private:
  Vexa_H5::DataspaceHandle mFile;
  Vexa_H5::DataspaceHandle mMemory;
};

// Rows that are read together from a dataset whose chunks, or whose contiguous rows, hold several
// columns: whole chunks, so that each is inflated once, and about a mebibyte of values at least.
std::uint64_t RowsPerPass(const TableLayout& layout, const ColumnBlock& block) {
  const std::uint64_t chunkRows = std::max<std::uint64_t>(layout.mChunkRows, 1);
  const std::uint64_t rows = std::max<std::uint64_t>(sValuesPerPass / block.mColumns, 1);
  return std::max<std::uint64_t>(rows / chunkRows, 1) * chunkRows;
}

void Transpose(const double* rowMajor, std::uint64_t rows, std::uint64_t columns, double* values,
               std::uint64_t stride) {
  for (std::uint64_t c = 0; c < columns; ++c) {
    double* column = values + c * stride;
    for (std::uint64_t r = 0; r < rows; ++r) {
      column[r] = rowMajor[r * columns + c];
    }
  }
}

}  // namespace

TableLayout ReadTableLayout(hid_t dataset_id, const std::string& name) {
  Vexa_H5::DatatypeHandle type_id = Vexa_H5::RequireNumbers(dataset_id, name);
  Vexa_H5::PropertyListHandle cparms_id(H5Dget_create_plist(dataset_id));
  REQUIRE_FOR_CALLER(cparms_id>=0, "H5Dget_create_plist failed");
  RequireOwnStorage(cparms_id, name);
  Vexa_H5::RequireFittingFillValue(cparms_id, type_id, name);
  const Vexa_H5::ChunkGrid grid = Vexa_H5::ReadChunkGrid(dataset_id, cparms_id);
  const std::size_t ndims = grid.mDims.size();
  REQUIRE_FOR_CALLER(ndims==2, "Dimension mismatch.");

  TableLayout layout;
  layout.mRows = grid.mDims[0];
  layout.mColumns = grid.mDims[1];
  if (!grid.mChunk.empty()) {
    layout.mChunkRows = grid.mChunk[0];
    layout.mChunkColumns = grid.mChunk[1];
    layout.mHasFilters = H5Pget_nfilters(cparms_id) > 0;
    layout.mMovesChunks =
        layout.mChunkColumns == 1 && CanMoveChunks(type_id, cparms_id, layout.mFilters);
  }
  cparms_id.Close();
  type_id.Close();

  // Legends and rows are held per column, whatever the file has of them.
  const hsize_t mostColumns = 1000000;
  REQUIRE_FOR_CALLER(layout.mColumns<=mostColumns,
             name << " claims " << layout.mColumns << " columns");
  return layout;
}

bool TableLayout::IsLike(const TableLayout& other) const {
  const auto form = [](const TableLayout& layout) {
    return std::tuple(layout.mColumns, layout.mChunkRows, layout.mChunkColumns, layout.mHasFilters,
                      layout.mMovesChunks, layout.mFilters.mShuffle, layout.mFilters.mDeflate,
                      layout.mFilters.mFletcher32);
  };
  return form(*this) == form(other);
}

void CheckStorage(hid_t dataset_id, TableLayout& layout, const std::string& name) {
  Vexa_H5::ChunkGrid grid{{layout.mRows, layout.mColumns}, {}};
  if (layout.mChunkRows > 0) {
    grid.mChunk = {layout.mChunkRows, layout.mChunkColumns};
  }
  const long double values = static_cast<long double>(layout.mRows) * layout.mColumns;
  const std::uint64_t stored =
      Vexa_H5::RequirePlausibleStorage(dataset_id, grid, sizeof(double) * values, name);
  layout.mStoredBytes = stored;
  Vexa_H5::BytesOfChunk(dataset_id, grid, name);
  if (!layout.mHasFilters) {
    RequireWholeChunks(dataset_id, grid, stored, name);
  }
}

namespace {

// Reads blocks of a table one after the other.
class BlockReader {
 public:
  explicit BlockReader(const OpenTable& table) : mTable(table), mSelection(table.mDataset_id) {
    if (table.mLayout.mHasFilters) {
      mChunks.emplace(table.mDataset_id, table.mName);
    }
  }

  // Values come as they lie in the file: row after row.
  void Read(const ColumnBlock& block, double* values) {
    RequireWholeChunks(block);
    mSelection.Select(block);
    const herr_t err =
        mTable.mTrace(4,
                      H5Dread(mTable.mDataset_id, H5T_NATIVE_DOUBLE, mSelection.MemorySpace(),
                              mSelection.FileSpace(), H5P_DEFAULT, values),
                      "H5Dread(", mTable.mDataset_id, ", ...)");
    REQUIRE_FOR_CALLER(err>=0, "H5Dread failed for name=" << mTable.mName);
  }

  void Close() { mSelection.Close(); }

 private:
  void RequireWholeChunks(const ColumnBlock& block) const {
    if (!mChunks || !mChunks->CanRead()) {
      return;
    }
    const std::uint64_t rows = mTable.mLayout.mChunkRows;
    const std::uint64_t columns = mTable.mLayout.mChunkColumns;
    for (std::uint64_t row = block.mFirstRow / rows * rows; row < block.mFirstRow + block.mRows;
         row += rows) {
      for (std::uint64_t column = block.mFirstColumn / columns * columns;
           column < block.mFirstColumn + block.mColumns; column += columns) {
        mChunks->Read({row, column});
      }
    }
  }

  const OpenTable& mTable;
  Selection mSelection;
  std::optional<RawChunks> mChunks;  // if there are filters
};

// A chunk without checksum or compression does not tell whether all of it is there; and the library
// reads it as fast.
bool ReadsChunks(const TableLayout& layout) {
  return layout.mMovesChunks && (layout.mFilters.mDeflate || layout.mFilters.mFletcher32);
}

}  // namespace

void ReadColumns(const OpenTable& table, const ColumnBlock& block, double* values) {
  if (block.mRows == 0 || block.mColumns == 0) {
    return;
  }
  const TableLayout& layout = table.mLayout;
  if (layout.mChunkColumns == 1 || layout.mColumns == 1) {
    PendingReads reads;
    const RowRun rows[] = {{block.mFirstRow, block.mFirstRow + block.mRows}};
    for (std::uint64_t c = 0; c < block.mColumns; ++c) {
      StartReading(table, block.mFirstColumn + c, rows, values + c * block.mRows, reads);
    }
    reads.Finish();
    return;
  }
  BlockReader reader(table);
  const std::uint64_t rowsPerPass = RowsPerPass(layout, block);
  const std::uint64_t bufferRows = std::min(rowsPerPass, block.mRows);
  const auto rowMajor = std::make_unique_for_overwrite<double[]>(bufferRows * block.mColumns);
  std::uint64_t done = 0;
  while (done < block.mRows) {
    // Passes end where chunks end, wherever the block begins.
    const std::uint64_t row = block.mFirstRow + done;
    const std::uint64_t rows = std::min(rowsPerPass - row % rowsPerPass, block.mRows - done);
    reader.Read({block.mFirstColumn, block.mColumns, row, rows}, rowMajor.get());
    Transpose(rowMajor.get(), rows, block.mColumns, values + done, block.mRows);
    done += rows;
  }
  reader.Close();
}

void StartReading(const OpenTable& table, std::uint64_t column, std::span<const RowRun> runs,
                  double* values, PendingReads& reads) {
  if (ReadsChunks(table.mLayout)) {
    StartReadingChunks(table, column, runs, values, reads);
  } else {
    ReadByLibrary(table, column, runs, values);
  }
}

void ReadByLibrary(const OpenTable& table, std::uint64_t column, std::span<const RowRun> runs,
                   double* values) {
  // Short runs that lie in a window of whole chunks are read along with what is between them.
  const std::uint64_t chunkRows = std::max<std::uint64_t>(table.mLayout.mChunkRows, 1);
  const std::uint64_t window = std::max<std::uint64_t>(sValuesPerPass / chunkRows, 1) * chunkRows;
  BlockReader reader(table);
  std::unique_ptr<double[]> together;
  while (!runs.empty()) {
    const std::uint64_t first = runs[0].mFirst;
    const std::uint64_t windowEnd = (first / window + 1) * window;
    const auto inWindow = [windowEnd](const RowRun& run) { return run.mOnePastLast <= windowEnd; };
    const auto count =
        static_cast<std::size_t>(std::ranges::find_if_not(runs, inWindow) - runs.begin());
    if (count <= 1) {
      reader.Read({column, 1, first, runs[0].Size()}, values);
      values += runs[0].Size();
      runs = runs.subspan(1);
      continue;
    }
    if (together == nullptr) {
      together = std::make_unique_for_overwrite<double[]>(std::min(window, table.mLayout.mRows));
    }
    reader.Read({column, 1, first, runs[count - 1].mOnePastLast - first}, together.get());
    for (const RowRun& run : runs.first(count)) {
      values = std::copy_n(together.get() + (run.mFirst - first), run.Size(), values);
    }
    runs = runs.subspan(count);
  }
  reader.Close();
}

namespace {

void WriteBlock(const OpenTable& table, const ColumnBlock& block, const double* values) {
  Selection selection(table.mDataset_id);
  selection.Select(block);
  const herr_t err =
      table.mTrace(4,
                   H5Dwrite(table.mDataset_id, H5T_NATIVE_DOUBLE, selection.MemorySpace(),
                            selection.FileSpace(), H5P_DEFAULT, values),
                   "H5Dwrite(", table.mDataset_id, ", ...)");
  REQUIRE_FOR_CALLER(err>=0, "H5Dwrite failed");
  selection.Close();
}

}  // namespace

void WriteByLibrary(const OpenTable& table, std::uint64_t column, std::uint64_t firstRow,
                    std::span<const double> values) {
  WriteBlock(table, {column, 1, firstRow, values.size()}, values.data());
}

void WriteRowsByLibrary(const OpenTable& table, std::uint64_t firstRow,
                        std::span<const double> rowMajor) {
  const std::uint64_t columns = table.mLayout.mColumns;
  WriteBlock(table, {0, columns, firstRow, rowMajor.size() / columns}, rowMajor.data());
}

}  // namespace Tables
