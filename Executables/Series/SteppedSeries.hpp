// What the kinds that are keyed by time share: the files' times decide which steps are kept, and
// the values of these are kept rows of the files' tables.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Executables/Series/SelectTimeSteps.hpp"
#include "Executables/Series/Series.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"
#include "Utils/Store/IndexedGroup.hpp"

/// Which steps of a dataset are kept: a list of runs per file, and what is told of them.
struct SelectedSteps {
  std::vector<std::vector<StepRun>> mRuns;
  std::int64_t mKept = 0;
  std::int64_t mTotal = 0;
  double mMaximumGap = 0;
};

class SteppedSeries : public Series {
 public:
  /// Selects among the steps of all files that were taken in.
  void Select(bool noWipe);

  /// All below is about what was selected. Files are counted as they were taken in.
  const SelectedSteps& Steps() const { return mSteps; }
  /// The times of all steps, per file; of a join or check only as far as they are held.
  const std::vector<MyVector<double>>& Times() const { return mTimes; }
  /// The input file of Times()[i], and how many steps it has, held or not.
  int FileOf(std::size_t i) const { return mInputs[i].mFile; }
  std::uint64_t StepsIn(std::size_t i) const {
    return HoldsTimes(i) ? mTimes[i].size() : mInputs[i].mRows;
  }
  std::uint64_t KeptRows() const { return mKeptRows; }
  /// The index of the kept steps as it stands in an output; empty for kinds without an index.
  virtual H5_Objects::StepIndex KeptIndex() const { return {}; }

  /// A run of kept rows in the table of a file, and where it stands among all kept rows.
  struct Stretch {
    std::size_t mInput;
    std::uint64_t mRow;
    std::uint64_t mRows;
    std::uint64_t mKeptRow;
  };
  std::vector<Stretch> StretchesWithin(const Tables::ColumnBlock& block) const;

  /// Reads a block of the table that the kept rows make. `room` is asked where the values go,
  /// column after column: once for the whole block, or, where that is one column of more than
  /// `most` values, for one piece after the other, each of about as many values or one chunk of a
  /// file. They are there when the reads that come with the room have finished.
  using Room = std::function<Tables::ColumnWriter::Place(const Tables::ColumnBlock& piece)>;
  void Read(const Tables::ColumnBlock& block, std::uint64_t most, const Room& room);
  /// Reads all of that table in such pieces, as many columns together as `most` values make; of
  /// files that do not fit in memory, as many as do, unless the order is to be the same always.
  void ReadAll(std::uint64_t most, const Room& room, bool isOrderFixed = false);
  /// Reads all of that table in blocks of rows of about `most` values, so that files are read once
  /// in which the columns of some rows lie side by side.
  void ReadRows(std::uint64_t most, const Room& room);
  /// Whether that inflates hardly any chunk twice.
  bool CanReadRows(std::uint64_t most) const;
  /// Whether ReadAll() would read from files again what ReadRows() reads once.
  bool ShouldReadRows(std::uint64_t most) const;

  /// "step 3 (t = 0.5)": what stands in the row of a file's table.
  virtual std::string RowText(std::size_t i, std::uint64_t row) const = 0;
  /// " in column 1 (energy)", if that needs to be told.
  virtual std::string ColumnText(std::uint64_t /*column*/) const { return ""; }

  /// The rows of the table that a view has, as mappings to the files' tables.
  Tables::VirtualTable Mappings(const std::vector<std::string>& inputNames) const;
  /// Of the table of one file that was taken in, what maps its rows to other files; null if they
  /// are its own.
  const Tables::VirtualTable* VirtualTableOf(std::size_t i) const {
    return mInputs[i].mLayout.mpVirtual.get();
  }
  bool HoldsDoubles(std::size_t i) const { return mInputs[i].mLayout.mHoldsDoubles; }
  /// The rows of the longest chunk of all files. Whoever reads fewer rows at a time has chunks
  /// inflated again.
  std::uint64_t LongestChunk() const;
  /// Whether each column can be read without the others, at no more than its own cost.
  bool HasColumnsApart() const;

  bool IsWritten() const override { return true; }
  void Join(CachedH5File& output) override;
  /// Fails on a table of more runs of rows than can be read with ease.
  void MakeView(CachedH5File& output, const std::vector<std::string>& inputNames) override;
  Remains Salvage(int file, CachedH5File& output) override;

 protected:
  SteppedSeries(const SeriesRun& run, const Dataset& dataset, bool hasTimeColumn)
      : Series(run, dataset), mHasTimeColumn(hasTimeColumn) {}

  // The table of one file. What is in memory of it is the window; times are held apart.
  struct Input {
    int mFile;
    std::uint64_t mRows;
    Tables::TableLayout mLayout;
    std::uint64_t mStoredBytes;  // of all that is read of the dataset
    Tables::ColumnBlock mWindow = {};
    std::unique_ptr<double[]> mValues = {};  // of the window, column after column
    std::vector<Tables::RowRun> mKept = {};
    std::uint64_t mFirstKept = 0;  // where its first kept row stands among all
    std::uint64_t mKeptRows = 0;

    // Whether a column can be read without the others, at no more than its own cost.
    bool HasColumnsApart() const { return mLayout.mChunkColumns == 1 || mLayout.mColumns == 1; }
    bool Has(std::uint64_t column, const std::vector<Tables::RowRun>& runs) const;
    // The values are there when the reads have finished.
    void Fill(const H5_Objects::Dat& table, const Tables::ColumnBlock& window,
              Tables::PendingReads& reads);
  };

  /// Looks at the open table of a file and, for a join, starts to read it if it is to be held: if
  /// it is small, which saves opening it twice, or if its columns lie mixed on disk; as far as the
  /// limit allows.
  Input ReadInput(int file, const H5_Objects::Dat& table, Depth depth);

  /// Takes in the times of a table whose first column they are. They are there when steps are
  /// selected, for a plan at once.
  void TakeTimes(const Input& input, const H5_Objects::Dat& table, Depth depth);
  bool HoldsTimes(std::size_t i) const {
    return mTimes[i].size() > 0 || !mHasTimeColumn || mInputs[i].mRows == 0;
  }

  /// Lends the open table of a file.
  virtual void VisitTable(int file, const std::function<void(const H5_Objects::Dat&)>& visit) = 0;
  /// The rows of a file's table that belong to steps: a row for each step, unless a kind knows
  /// better.
  virtual std::vector<Tables::RowRun> RowsOf(std::size_t /*i*/,
                                             const std::vector<StepRun>& steps) const {
    return steps;
  }
  /// Takes in the steps of a file that are whole: their number is that of the times.
  virtual Remains TakeInWhole(int file) = 0;
  /// Tells what is whole of a file that was taken in and has `total` steps, from the table with the
  /// times.
  Remains RemainsOf(const H5_Objects::Dat& table, std::string reason) const;
  /// The path of the table within the dataset, if it is not the dataset itself.
  virtual std::string TableWithin() const { return ""; }
  /// Writes what was selected, with mView instead of the values if there is one.
  virtual void Write(CachedH5File& output) = 0;
  /// Tells of a join what was selected.
  virtual void PrintSelection() const;
  /// Hands all kept rows to the writer.
  void WriteRows(Tables::ColumnWriter& writer);

  std::vector<Input> mInputs;
  std::vector<MyVector<double>> mTimes;       // of all steps, per input; none if they are not held
  std::optional<Tables::VirtualTable> mView;  // instead of values, if a view is made

 private:
  using Runs = std::vector<Tables::RowRun>;
  void SetKept();
  // Whether the times of a table are to be held besides those that are. Others are read again when
  // steps are selected, and when they are written.
  bool CanHoldTimes(const H5_Objects::Dat& table, Depth depth) const;
  void FinishTimes();
  static std::uint64_t CountRows(const Runs& runs);
  Runs SelectIn(std::size_t i, StepSelection& selection);
  Runs KeptWithin(const Input& input, const Tables::ColumnBlock& block) const;
  std::vector<Runs> Passes(const Input& input, const Runs& runs, std::uint64_t columns,
                           std::uint64_t most) const;
  void Fetch(std::size_t i, const H5_Objects::Dat* pTable, const Tables::ColumnBlock& columns,
             const Runs& runs, std::uint64_t most, Tables::ColumnWriter::Place place);
  // Whether what is read of the input is read ahead, bit by bit.
  bool IsReadAhead(const Input& input) const;
  void Approach(const Input& input, const Tables::ColumnBlock& columns, const Tables::RowRun& rows);
  void RetrieveTimes(const Input& input, const H5_Objects::Dat& table, MyVector<double>& times);
  std::uint64_t ColumnsTogether(std::uint64_t most, bool isOrderFixed = false) const;
  Tables::ColumnBlock NextWindow(const Input& input, const Tables::ColumnBlock& wanted,
                                 std::uint64_t most) const;
  void TellProgress(const Input& input, const Tables::ColumnBlock& block, std::uint64_t rows) const;

  bool mHasTimeColumn;  // the first column of the table
  SelectedSteps mSteps;
  std::uint64_t mKeptRows = 0;
  std::uint64_t mHeldBytes = 0;
  std::uint64_t mMixedRows = 0;  // of tables with mixed columns that are to be held but do not fit
  std::deque<std::size_t> mWindowed;  // inputs that have one, in the order of reading
  Tables::PendingReads mReads;  // of times and of values that are held; last: it waits for them
};
