#include <algorithm>
#include <memory>

#include "Executables/Kelmor/Join.hpp"
#include "Executables/Series/Agreement.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"

namespace {

using H5_Objects::Dat;

constexpr std::uint64_t sSmallTableBytes = 1024 * 1024;

// Columns of one input's copy of a table, as far as they are in memory.
struct Held {
  std::uint64_t mRows = 0;
  std::uint64_t mStoredBytes = 0;
  std::uint64_t mFirstColumn = 0;
  std::uint64_t mColumns = 0;
  bool mIsStreamed = false;  // columns that are not in memory are read when they are written
  std::unique_ptr<double[]> mValues;  // column after column

  void Read(const Dat& dat, std::uint64_t firstColumn, std::uint64_t columns) {
    mFirstColumn = firstColumn;
    mColumns = columns;
    mValues = std::make_unique_for_overwrite<double[]>(mRows * columns);
    dat.RetrieveColumns_({firstColumn, columns, 0, mRows}, mValues.get());
  }
  bool Has(std::uint64_t column) const {
    return column >= mFirstColumn && column < mFirstColumn + mColumns;
  }
  const double* Column(std::uint64_t column) const {
    return mValues.get() + (column - mFirstColumn) * mRows;
  }
};

// Whether any of its columns can be read without the others, at no more than the columns' own cost.
bool HasColumnsApart(const Tables::TableLayout& layout) {
  return layout.mChunkColumns == 1 || layout.mColumns == 1;
}

// One table in all files that hold it. The times of all are held. Of the values, those of small
// tables are held, which saves opening them twice, and so are those whose columns lie mixed on
// disk, while that stays within the limit. Others are read a few columns at a time: straight to
// where they are written from, or, where columns lie mixed, as many neighbouring ones as fit.
class TableInputs {
 public:
  TableInputs(JoinRun& run, const JoinTask& task) : mRun(run), mTask(task), mAgreement(task.mName) {
    VisitAgreeing<Dat>(run.mInputs, task.mHolders, task.mName, mAgreement,
                       [this](const Dat& dat) { ReadInput(dat); });
  }

  const MyVector<std::string>& Legend() const { return mAgreement.Legend(); }
  const std::vector<MyVector<double>>& Times() const { return mTimes; }

  // Hands over the kept rows, file after file within a column.
  void Write(const SelectedSteps& steps, Tables::ColumnWriter& writer) {
    const auto kept = static_cast<std::uint64_t>(steps.mKept);
    const auto columns = static_cast<std::uint64_t>(mAgreement.Columns());
    const std::uint64_t together =
        std::clamp<std::uint64_t>(writer.BlockValues() / kept, 1, columns);
    for (std::uint64_t first = 0; first < columns; first += together) {
      const std::uint64_t count = std::min(together, columns - first);
      auto [values, reads] = writer.Room(count * kept);
      for (std::size_t i = 0; i < mInputs.size(); ++i) {
        Gather(i, {first, count, 0, kept}, steps.mRuns[i], values, reads);
        values += RowsIn(steps.mRuns[i]);
        mRun.mProgress.Advance(mInputs[i].mStoredBytes, count, columns);
      }
    }
  }

 private:
  static std::uint64_t RowsIn(const std::vector<StepRun>& runs) {
    std::uint64_t rows = 0;
    for (const StepRun& run : runs) {
      rows += run.Size();
    }
    return rows;
  }

  void ReadInput(const Dat& dat) {
    const auto columns = static_cast<std::uint64_t>(mAgreement.Columns());
    Held held;
    held.mRows = dat.GetExtents()[0];
    held.mStoredBytes = dat.Layout().mStoredBytes;
    held.mIsStreamed = HasColumnsApart(dat.Layout());
    const std::uint64_t bytes = held.mRows * columns * sizeof(double);
    const bool isWanted = !held.mIsStreamed || bytes <= sSmallTableBytes;
    const bool isHeld = isWanted && bytes <= mRun.mOptions.mCacheSize - mHeldBytes;
    held.Read(dat, 0, isHeld ? columns : 1);
    mTimes.emplace_back(MV::Sequence(held.Column(0), held.mRows));
    if (isHeld) {
      mHeldBytes += bytes;
    } else {
      mRowsNotHeld += held.mIsStreamed ? 0 : held.mRows;
      held.mValues.reset();
      held.mColumns = 0;
    }
    mInputs.push_back(std::move(held));
  }

  // The rows of the block that come from one input, as far apart as the block's columns are.
  void Gather(std::size_t i, const Tables::ColumnBlock& block, const std::vector<StepRun>& runs,
              double* values, Tables::PendingReads& reads) {
    if (runs.empty()) {
      return;
    }
    std::uint64_t column = block.mFirstColumn;
    const std::uint64_t end = column + block.mColumns;
    if (column == 0) {
      Copy(mTimes[i].data(), runs, values);
      ++column;
      values += block.mRows;
    }
    if (mInputs[i].mIsStreamed && mInputs[i].mValues == nullptr) {
      if (column < end) {
        mRun.mInputs.Visit<Dat>(mTask.mHolders[i], mTask.mName, [&](const Dat& dat) {
          RequireUnchanged(i, dat);
          for (; column < end; ++column, values += block.mRows) {
            dat.RetrieveRuns_(column, runs, values, reads);
          }
        });
      }
      return;
    }
    for (; column < end; ++column, values += block.mRows) {
      if (!mInputs[i].Has(column)) {
        ReadGroup(i, column);
      }
      Copy(mInputs[i].Column(column), runs, values);
    }
  }

  static void Copy(const double* column, const std::vector<StepRun>& runs, double* values) {
    for (const StepRun& run : runs) {
      values = std::copy(column + run.mFirst, column + run.mOnePastLast, values);
    }
  }

  void ReadGroup(std::size_t i, std::uint64_t column) {
    const std::uint64_t room = mRun.mOptions.mCacheSize - mHeldBytes;
    const std::uint64_t columns =
        std::clamp<std::uint64_t>(room / (mRowsNotHeld * sizeof(double)), 1,
                                  static_cast<std::uint64_t>(mAgreement.Columns()) - column);
    mInputs[i].mValues.reset();
    mRun.mInputs.Visit<Dat>(mTask.mHolders[i], mTask.mName, [&](const Dat& dat) {
      RequireUnchanged(i, dat);
      mInputs[i].Read(dat, column, columns);
    });
  }

  void RequireUnchanged(std::size_t i, const Dat& dat) const {
    REQUIRE(dat.GetExtents()[0]==mInputs[i].mRows, "The file changed while it was read");
  }

  JoinRun& mRun;
  const JoinTask& mTask;
  TableAgreement mAgreement;
  std::vector<MyVector<double>> mTimes;
  std::vector<Held> mInputs;  // one per holder
  std::uint64_t mHeldBytes = 0;
  std::uint64_t mRowsNotHeld = 0;
};

}  // namespace

void JoinDat(JoinRun& run, const JoinTask& task) {
  const Inputs::KeptOpen keptOpen(run.mInputs);
  TableInputs inputs(run, task);
  const SelectedSteps steps = SelectSteps(run.mOptions, inputs.Times());
  PrintSelection(run, task, steps);
  auto& dat = run.mOutput.GetObjectForWrite<Dat>(task.mName);
  dat.Initialize(inputs.Legend(), !run.mOptions.mNoGzip, steps.mKept);
  // Written at once: the table is complete, and holding it serves nothing.
  run.mOutput.WriteImmediately(task.mName, [&] {
    dat.WriteManyStepsImmediately_(
        steps.mKept, [&](Tables::ColumnWriter& writer) { inputs.Write(steps, writer); });
  });
}
