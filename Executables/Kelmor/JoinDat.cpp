#include <algorithm>
#include <memory>

#include "Executables/Kelmor/Agreement.hpp"
#include "Executables/Kelmor/Join.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/H5/H5_ObjectDat.hpp"

namespace {

using H5_Objects::Dat;

// Columns of one input's copy of a table, as far as they are in memory.
struct Held {
  std::uint64_t mRows = 0;
  std::uint64_t mStoredBytes = 0;
  std::uint64_t mFirstColumn = 0;
  std::uint64_t mColumns = 0;
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

// One table in all files that hold it. Files are held whole while that stays within the limit; of
// the others only the times are held, and later as many neighbouring columns as fit.
class TableInputs {
 public:
  TableInputs(JoinRun& run, const JoinTask& task) : mRun(run), mTask(task), mAgreement(task.mName) {
    for (const int file : task.mHolders) {
      mRun.mInputs.Visit<Dat>(file, task.mName, [this](const Dat& dat) { ReadInput(dat); });
    }
  }

  const MyVector<std::string>& Legend() const { return mAgreement.Legend(); }
  const std::vector<MyVector<double>>& Times() const { return mTimes; }

  // The kept rows of one column, file after file.
  void Gather(std::uint64_t column, const SelectedSteps& steps, double* values) {
    for (std::size_t i = 0; i < mInputs.size(); ++i) {
      // Told when a column is written, which takes longer than to read it.
      mRun.mProgress.Advance(mInputs[i].mStoredBytes, 1,
                             static_cast<std::uint64_t>(mAgreement.Columns()));
      if (steps.mRuns[i].empty()) {
        continue;
      }
      if (!mInputs[i].Has(column)) {
        ReadGroup(i, column);
      }
      const double* source = mInputs[i].Column(column);
      for (const StepRun& run : steps.mRuns[i]) {
        values = std::copy(source + run.mFirst, source + run.mOnePastLast, values);
      }
    }
  }

 private:
  void ReadInput(const Dat& dat) {
    mAgreement.Take(dat);
    const auto columns = static_cast<std::uint64_t>(mAgreement.Columns());
    Held held;
    held.mRows = dat.GetExtents()[0];
    held.mStoredBytes = dat.Layout().mStoredBytes;
    const std::uint64_t bytes = held.mRows * columns * sizeof(double);
    const bool fits = bytes <= mRun.mOptions.mCacheSize - mHeldBytes;
    held.Read(dat, 0, fits ? columns : 1);
    mTimes.emplace_back(MV::Sequence(held.Column(0), held.mRows));
    if (fits) {
      mHeldBytes += bytes;
    } else {
      mRowsNotHeld += held.mRows;
      held.mValues.reset();
      held.mColumns = 0;
    }
    mInputs.push_back(std::move(held));
  }

  void ReadGroup(std::size_t i, std::uint64_t column) {
    const std::uint64_t room = mRun.mOptions.mCacheSize - mHeldBytes;
    const std::uint64_t columns =
        std::clamp<std::uint64_t>(room / (mRowsNotHeld * sizeof(double)), 1,
                                  static_cast<std::uint64_t>(mAgreement.Columns()) - column);
    mInputs[i].mValues.reset();
    mRun.mInputs.Visit<Dat>(mTask.mHolders[i], mTask.mName, [&](const Dat& dat) {
      REQUIRE(dat.GetExtents()[0]==mInputs[i].mRows, "The file changed while it was read");
      mInputs[i].Read(dat, column, columns);
    });
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
  TableInputs inputs(run, task);
  const SelectedSteps steps = SelectSteps(run.mOptions, inputs.Times());
  PrintSelection(run, task, steps);
  auto& dat = run.mOutput.GetObjectForWrite<Dat>(task.mName);
  dat.Initialize(inputs.Legend(), !run.mOptions.mNoGzip, steps.mKept);
  // Written at once, a column at a time: the table is complete, and holding it serves nothing.
  run.mOutput.WriteImmediately(task.mName, [&] {
    dat.WriteManyStepsImmediately_(steps.mKept, [&](std::uint64_t column, double* scratch) {
      inputs.Gather(column, steps, scratch);
      return scratch;
    });
  });
}
