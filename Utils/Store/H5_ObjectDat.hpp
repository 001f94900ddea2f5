#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Utils/Containers/MyVector.hpp"
#include "Utils/Factory/Register.hpp"
#include "Utils/Store/DataSet.hpp"
#include "Utils/Tables/ColumnWriter.hpp"
#include "Utils/Tables/Columns.hpp"
#include "Utils/Tables/PendingReads.hpp"
#include "Utils/Tables/RowRun.hpp"
#include "Utils/Tables/VirtualTable.hpp"

#pragma GCC visibility push(default)

namespace H5_Objects {

/// Returns the name under which older files carry the table of that name, or the name itself.
std::string LegacyName(const std::string& name);

/// A Dat is a table that grows by rows: one two-dimensional dataset of doubles, a row per time
/// step, a named column per quantity. Appended rows wait in memory until the file cache has them
/// written. On disk every chunk is a run of rows of a single column.
///
/// A table that is not in the file yet is given its shape by Initialize(); one that is in the file
/// gets it from there in OpenObject(). The operations that read or write the file need the object
/// open; Append() does not.
class Dat : public DataSet, public Factory::Register<Dat> {
 public:
  static std::string ClassID() { return "dat"; }
  static std::string Help();

  Dat(const std::string& name, bool existsOnDisk, int verbosity);
  /// Ends the process if rows are still waiting.
  ~Dat() override;

  /// The longest chunk: HDF5 accepts less than 4 GiB.
  static constexpr unsigned long long sMostChunkRows = 0xffffffffULL / sizeof(double);

  /// Shapes a new table: one column per legend. `chunkRows` is the length of a chunk; 0 counts as
  /// 1, and what exceeds sMostChunkRows is divided by the least number of chunks. Writes nothing.
  /// Fails with "DataSet already initialized".
  void Initialize(const MyVector<std::string>& legend, bool compress, std::size_t chunkRows);
  bool IsInitialized() const { return mExistsInFile || !mExtents.empty(); }
  /// Has the new table, which is created when it is opened, consist of rows that stay in other
  /// files. It counts as one without rows until it is opened again, and gets none of its own.
  void SetVirtual(Tables::VirtualTable table) { mVirtual = std::move(table); }

  /// Opens the table, or creates it with its legend. Files that carry the older, misspelled link
  /// names "DimensionfullInertialSpin[Mag].dat" are read under the right ones.
  void OpenObject(hid_t parentGroupId) override;
  bool AreAttributesKnown() const override { return !mExtents.empty(); }

  /// Adds one row to the cache: one value per column in legend order, the time first.
  void Append(const MyVector<double>& row);
  /// Adds whole rows of so many columns, one after the other: all of them or, on failure, none.
  void Append_(std::span<const double> rows, std::uint64_t columns);

  /// Writes all waiting rows to the open table. If that fails, the table is as long as before.
  void WriteCache() override;
  void DropCache() override;
  void Flushed() override { mRowsFlushed = StepsInFile(); }
  void RolledBack(bool isFileNew) override;

  /// Writes the waiting rows, then `data` at once as data.size() rows of a one-column table.
  void WriteManyStepsImmediately(const std::vector<double>& data);

  /// Writes the waiting rows, then `rows` rows at once, which `fill` hands over column after
  /// column: no more than one column need be in memory.
  void WriteManyStepsImmediately_(std::uint64_t rows,
                                  const std::function<void(Tables::ColumnWriter&)>& fill);

  /// Removes the rows of the open table from `rows` on; waiting ones stay.
  void CutBack(std::uint64_t rows);

  /// {rows, columns}, waiting rows included, so it can exceed what is in the file.
  /// Fails with "Must call Initialize or OpenObject first".
  MyVector<unsigned long long> GetExtents() const;
  /// Returns one name per column. Fails like GetExtents.
  MyVector<std::string> GetLegend() const;

  std::uint64_t NTimeStepsCached() const override;
  std::uint64_t StepsInFile() const override { return mExtents.empty() ? 0 : mExtents[0]; }
  /// 8 bytes per waiting value, and the legend's characters while the table is not in the file.
  std::uint64_t SizeOfCache() const override;
  std::ostream& Output(std::ostream& os, const std::string& indent) const override;

  /// Reads the times of all rows in the file: column 0.
  MyVector<double> RetrieveTimes() const;
  /// Fails if the values of the open table cannot be read for another reason than damage.
  void RequireReadable() const;
  /// Reads all rows in the file, one vector per row; waiting rows are not included.
  MyVector<MyVector<double>> RetrieveData() const;

  /// Reads rows [first, one_past_last) of the listed columns, one vector per listed column. Columns
  /// are listed in ascending order. Waiting rows cannot be read.
  MyVector<MyVector<double>> RetrieveColumns(const MyVector<int>& columns, unsigned long long first,
                                             unsigned long long one_past_last) const;

  /// Reads neighbouring columns into memory of the caller: values[c * rows + r].
  void RetrieveColumns_(const Tables::ColumnBlock& block, double* values) const;
  /// The same; the values are in place when `reads` has finished.
  void RetrieveColumns_(const Tables::ColumnBlock& block, double* values,
                        Tables::PendingReads& reads) const;
  /// Reads runs of rows of one column, one after the other. The values are in place when `reads`
  /// has finished. Runs must ascend, and none may be empty.
  void RetrieveRuns_(std::uint64_t column, std::span<const Tables::RowRun> runs, double* values,
                     Tables::PendingReads& reads) const;
  /// See Tables::CountReadableRows.
  std::uint64_t CountReadableRows_(std::string& reason, std::uint64_t columns = ~0ULL) const;
  /// Returns how the open table lies on disk.
  const Tables::TableLayout& Layout() const { return mLayout; }

 private:
  std::string OwnAttribute() const override { return "Legend"; }
  Tables::OpenTable Table() const { return {mMy_id, mLayout, mName, mTrace}; }
  void TakeLayout();
  void WriteCacheDetail(std::uint64_t rows,
                        const std::function<void(const Tables::OpenTable&)>& write);
  void RequireFileExtents(const char* message) const;

  bool mCompress = false;
  MyVector<unsigned long long> mExtents;  // empty while unknown, else {rows in the file, columns}
  std::uint64_t mRowsFlushed = 0;         // rows in the file as it was last flushed
  MyVector<std::string> mLegends;         // one per column
  std::uint64_t mLegendCharacters = 0;    // of all legends together, or 0 once they were dropped
  unsigned long long mChunkRows = 0;      // of a new table
  unsigned long long mNumberOfColumnsPerRow = 1;  // of the waiting rows; 1 while there are none
  std::vector<double> mCachedData;                // waiting rows, row after row
  Tables::VirtualTable mVirtual;                  // of a new table, or without mappings
  Tables::TableLayout mLayout;                    // of the open table
  bool mIsLayoutKnown = false;                    // from an earlier opening, or our own making
};

}  // namespace H5_Objects

#pragma GCC visibility pop
