#include "Utils/Tables/Columns.hpp"

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/NumberType.hpp"
#include "Utils/HDF5/StoredChunks.hpp"
#include "Utils/Tables/ChunkReader.hpp"
#include "Utils/Tables/LibraryAccess.hpp"
#include "Utils/Tables/PendingReads.hpp"
#include "Utils/Tables/Storage.hpp"

namespace Tables {

TableLayout ReadTableLayout(hid_t dataset_id, const std::string& name) {
  const Vexa_H5::DatatypeHandle type_id = Vexa_H5::RequireNumbers(dataset_id, name);
  const Vexa_H5::PropertyListHandle cparms_id(H5Dget_create_plist(dataset_id));
  REQUIRE_FOR_CALLER(cparms_id>=0, "H5Dget_create_plist failed");
  TableLayout layout;
  if (OpenVirtualTables::AreAllowed() && H5Pget_layout(cparms_id) == H5D_VIRTUAL) {
    layout.mpVirtual = std::make_shared<const VirtualTable>(ReadVirtualTable(cparms_id, name));
  } else {
    RequireOwnStorage(cparms_id, name);
  }
  Vexa_H5::RequireFittingFillValue(cparms_id, type_id, name);
  const Vexa_H5::ChunkGrid grid = Vexa_H5::ReadChunkGrid(dataset_id, cparms_id);
  const std::size_t ndims = grid.mDims.size();
  REQUIRE_FOR_CALLER(ndims==2, "Dimension mismatch.");

  layout.mRows = grid.mDims[0];
  layout.mColumns = grid.mDims[1];
  layout.mElementBytes = H5Tget_size(type_id);
  layout.mFilters = ReadFilters(cparms_id);
  layout.mHoldsDoubles = H5Tequal(type_id, H5T_NATIVE_DOUBLE) > 0;
  if (!grid.mChunk.empty()) {
    layout.mChunkRows = grid.mChunk[0];
    layout.mChunkColumns = grid.mChunk[1];
    layout.mIsPlainAtEdges = AreEdgesPlain(cparms_id);
    layout.mMovesChunks = layout.mChunkColumns == 1 && layout.mHoldsDoubles &&
                          !layout.mIsPlainAtEdges && CanEncode(layout.mFilters);
  }

  // Legends and rows are held per column, whatever the file has of them.
  const hsize_t mostColumns = 1000000;
  REQUIRE_FOR_CALLER(layout.mColumns<=mostColumns,
             name << " claims " << layout.mColumns << " columns");
  return layout;
}

void CheckStorage(hid_t dataset_id, TableLayout& layout, const std::string& name) {
  if (layout.mpVirtual != nullptr) {
    return;
  }
  Vexa_H5::ChunkGrid grid{{layout.mRows, layout.mColumns}, {}};
  if (layout.mChunkRows > 0) {
    grid.mChunk = {layout.mChunkRows, layout.mChunkColumns};
  }
  const long double values = static_cast<long double>(layout.mRows) * layout.mColumns;
  const std::uint64_t stored =
      Vexa_H5::RequirePlausibleStorage(dataset_id, grid, sizeof(double) * values, name);
  layout.mStoredBytes = stored;
  Vexa_H5::BytesOfChunk(dataset_id, grid, name);
  if (layout.mFilters.empty()) {
    RequireWholeChunks(dataset_id, grid, stored, name);
  }
}

namespace {

void Read(const OpenTable& table, Target target, PendingReads& reads) {
  REQUIRE_FOR_CALLER(table.mLayout.mpVirtual==nullptr,
             table.mName << " has its values in other files, and is not read");
  // A chunk without filters is read as fast by the library.
  if (table.mLayout.mFilters.empty() || table.mLayout.mChunkRows == 0) {
    ReadByLibrary(table, std::move(target));
  } else {
    StartReadingChunks(table, std::move(target), reads);
  }
}

}  // namespace

void ReadColumns(const OpenTable& table, const ColumnBlock& block, double* values) {
  PendingReads reads;
  StartReading(table, block, values, reads);
  reads.Finish();
}

void StartReading(const OpenTable& table, const ColumnBlock& block, double* values,
                  PendingReads& reads) {
  if (block.mRows == 0 || block.mColumns == 0) {
    return;
  }
  const bool areApart = table.mLayout.mChunkColumns == 1 || table.mLayout.mColumns == 1;
  const std::uint64_t together = areApart ? 1 : block.mColumns;
  for (std::uint64_t c = 0; c < block.mColumns; c += together) {
    Read(table,
         {block.mFirstColumn + c,
          together,
          block.mRows,
          {{block.mFirstRow, block.mRows, values + c * block.mRows}}},
         reads);
  }
}

void StartReading(const OpenTable& table, std::uint64_t column, std::span<const RowRun> runs,
                  double* values, PendingReads& reads) {
  Target target{column, 1, 0, {}};
  target.mSlices.reserve(runs.size());
  for (const RowRun& run : runs) {
    target.mSlices.push_back({run.mFirst, run.Size(), values});
    values += run.Size();
  }
  Read(table, std::move(target), reads);
}

}  // namespace Tables
