// Moves columns of doubles between memory and an open two-dimensional dataset. On disk a table of
// ours keeps each column in chunks of its own, and in memory a column is contiguous, so columns
// move as blocks; the library's element-by-element walk through a row is what is avoided here.
#pragma once

#include <hdf5.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "Utils/ChunkCodec/Filters.hpp"
#include "Utils/ErrorHandling/Trace.hpp"
#include "Utils/Tables/RowRun.hpp"
#include "Utils/Tables/VirtualTable.hpp"

#pragma GCC visibility push(default)

namespace Tables {

/// Rows and columns to move: [mFirstRow, mFirstRow + mRows) of [mFirstColumn, ... + mColumns).
struct ColumnBlock {
  std::uint64_t mFirstColumn = 0;
  std::uint64_t mColumns = 0;
  std::uint64_t mFirstRow = 0;
  std::uint64_t mRows = 0;
};

/// How an open table lies on disk.
struct TableLayout {
  std::uint64_t mRows = 0;
  std::uint64_t mColumns = 0;
  std::uint64_t mChunkRows = 0;     // 0: not chunked
  std::uint64_t mChunkColumns = 0;  // 1: a chunk holds a single column, as in every table of ours
  std::uint64_t mStoredBytes = 0;   // on disk, once the storage was checked
  std::size_t mElementBytes = 0;
  bool mHoldsDoubles = false;    // of this machine, so that nothing is converted
  bool mIsPlainAtEdges = false;  // chunks that reach beyond the extents pass no filters
  bool mMovesChunks = false;  // our codec can make chunks, so that these need not be the library's
  ChunkCodec::Filters mFilters;
  std::shared_ptr<const VirtualTable> mpVirtual;  // of a table whose rows are in other files

  friend bool operator==(const TableLayout&, const TableLayout&) = default;
};

/// Reads extents and chunking of an open dataset; fails unless it holds numbers (see
/// RequireNumbers), with "Dimension mismatch." unless its rank is 2, and when its values are in
/// other files (but see OpenVirtualTables).
TableLayout ReadTableLayout(hid_t dataset_id, const std::string& name);

/// Fails when the dataset claims more than can be stored (see RequirePlausibleStorage), and notes
/// what it takes on disk. Looks up every chunk of the dataset. Does nothing for a virtual table.
void CheckStorage(hid_t dataset_id, TableLayout& layout, const std::string& name);

/// An open table as the functions below are handed it: lent, by the object that has it open and
/// under whose name they report.
struct OpenTable {
  hid_t mDataset_id;
  const TableLayout& mLayout;
  const std::string& mName;
  const Trace& mTrace;
};

class PendingReads;

/// Reads the block into `values`, column after column: values[c * mRows + r]. Any numeric type on
/// disk is converted; any layout is read chunk by chunk, each chunk once where rows of a chunk fit
/// into memory along with the block. Fails with "H5Dread failed for name=...".
void ReadColumns(const OpenTable& table, const ColumnBlock& block, double* values);

/// The same; the values are there when `reads` has finished.
void StartReading(const OpenTable& table, const ColumnBlock& block, double* values,
                  PendingReads& reads);

/// Reads runs of rows of one column, one after the other, into `values`, which are there when
/// `reads` has finished. Runs ascend, and none is empty. Each chunk is read once.
void StartReading(const OpenTable& table, std::uint64_t column, std::span<const RowRun> runs,
                  double* values, PendingReads& reads);

}  // namespace Tables

#pragma GCC visibility pop
