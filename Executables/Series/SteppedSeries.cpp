#include "Executables/Series/SteppedSeries.hpp"

#include <algorithm>
#include <functional>
#include <iostream>
#include <numeric>
#include <utility>

#include "Executables/Series/Pieces.hpp"
#include "Utils/ErrorHandling/OnFailure.hpp"
#include "Utils/ErrorHandling/Require.hpp"

using H5_Objects::Dat;
using Tables::ColumnBlock;
using Tables::RowRun;

namespace {

constexpr std::uint64_t sSmallTableBytes = 1024 * 1024;
// Of blocks of rows of all columns.
constexpr std::uint64_t sRowBlockValues = 1024 * 1024;
// At most so many times of a table are in memory together, unless they are planned with.
constexpr std::uint64_t sMostTimes = 32 * 1024 * 1024;

constexpr std::size_t sMostMappings = 10000;

}  // namespace

std::uint64_t SteppedSeries::CountRows(const Runs& runs) {
  return std::transform_reduce(runs.begin(), runs.end(), std::uint64_t{0}, std::plus(),
                               [](const RowRun& run) { return run.Size(); });
}

bool SteppedSeries::Input::Has(std::uint64_t column, const std::vector<RowRun>& runs) const {
  return mValues != nullptr && column >= mWindow.mFirstColumn &&
         column < mWindow.mFirstColumn + mWindow.mColumns &&
         runs.front().mFirst >= mWindow.mFirstRow &&
         runs.back().mOnePastLast <= mWindow.mFirstRow + mWindow.mRows;
}

void SteppedSeries::Input::Fill(const Dat& table, const ColumnBlock& window,
                                Tables::PendingReads& reads) {
  mValues.reset();
  mValues = std::make_unique_for_overwrite<double[]>(window.mColumns * window.mRows);
  mWindow = window;
  const OnFailure drop([&reads] { reads.Drop(); });
  table.RetrieveColumns_(window, mValues.get(), reads);
}

SteppedSeries::Input SteppedSeries::ReadInput(int file, const Dat& table, Depth depth) {
  const Tables::TableLayout& layout = table.Layout();
  Input input{file, layout.mRows, layout, layout.mStoredBytes};
  if (depth != Depth::Values) {
    return input;
  }
  const std::uint64_t bytes = layout.mRows * layout.mColumns * sizeof(double);
  const bool isWanted = !input.HasColumnsApart() || bytes <= sSmallTableBytes;
  if (isWanted && bytes <= mRun.mOptions.mCacheSize - mHeldBytes) {
    input.Fill(table, {0, layout.mColumns, 0, layout.mRows}, mReads);
    mHeldBytes += bytes;
  } else if (!input.HasColumnsApart()) {
    mMixedRows += layout.mRows;
  }
  return input;
}

bool SteppedSeries::CanHoldTimes(const Dat& table, Depth depth) const {
  if (table.Layout().mpVirtual != nullptr) {
    return false;
  }
  const auto held = std::transform_reduce(mTimes.begin(), mTimes.end(), table.Layout().mRows,
                                          std::plus(), [](const auto& t) { return t.size(); });
  const std::uint64_t most = std::min(sMostTimes, mRun.mOptions.mCacheSize / sizeof(double));
  return depth == Depth::TimesIfReadable || held <= most;
}

void SteppedSeries::TakeTimes(const Input& input, const Dat& table, Depth depth) {
  const bool isHeld = input.mValues != nullptr || CanHoldTimes(table, depth);
  MyVector<double>& times = mTimes.emplace_back(MV::Size(isHeld ? input.mRows : 0));
  if (input.mValues == nullptr) {
    // A plan goes on after a table that is damaged.
    const OnFailure leaveOut([this] {
      mReads.Drop();
      mTimes.pop_back();
    });
    RetrieveTimes(input, table, times);
    // Chunks of several columns would take memory until then.
    if (depth == Depth::TimesIfReadable || !input.HasColumnsApart()) {
      mReads.Finish();
    }
  }
}

// Those of tables that are held stand among the values.
void SteppedSeries::FinishTimes() {
  mReads.Finish();
  for (std::size_t i = 0; mHasTimeColumn && i < mInputs.size(); ++i) {
    if (mInputs[i].mValues != nullptr) {
      std::copy_n(mInputs[i].mValues.get(), mInputs[i].mRows, mTimes[i].data());
    }
  }
}

SteppedSeries::Runs SteppedSeries::SelectIn(std::size_t i, StepSelection& selection) {
  if (HoldsTimes(i)) {
    selection.Take(mTimes[i], 0);
    return selection.EndFile();
  }
  VisitTable(mInputs[i].mFile, [&](const Dat& dat) {
    std::vector<double> times;
    const std::vector<Runs> passes = Passes(mInputs[i], {{0, mInputs[i].mRows}}, 1, sMostTimes / 8);
    for (std::size_t pass = passes.size(); pass-- > 0;) {
      const RowRun& rows = passes[pass].front();
      times.resize(rows.Size());
      Approach(mInputs[i], {0, 1}, rows);
      dat.RetrieveColumns_({0, 1, rows.mFirst, rows.Size()}, times.data());
      selection.Take(times, rows.mFirst);
    }
  });
  return selection.EndFile();
}

void SteppedSeries::Select(bool noWipe) {
  FinishTimes();
  StepSelection selection(mRun.mOptions.mDeltaT);
  mSteps.mRuns.resize(mInputs.size());
  for (std::size_t i = mInputs.size(); i-- > 0;) {
    const std::uint64_t steps = StepsIn(i);
    mSteps.mTotal += static_cast<std::int64_t>(steps);
    if (!noWipe) {
      mSteps.mRuns[i] = SelectIn(i, selection);
    } else if (steps > 0) {
      mSteps.mRuns[i] = {{0, steps}};
    }
  }
  mSteps.mKept = noWipe ? mSteps.mTotal : selection.Kept();
  mSteps.mMaximumGap = selection.MaximumGap();
  SetKept();
}

void SteppedSeries::SetKept() {
  for (std::size_t i = 0; i < mInputs.size(); ++i) {
    mInputs[i].mKept = RowsOf(i, mSteps.mRuns[i]);
    mInputs[i].mFirstKept = mKeptRows;
    mInputs[i].mKeptRows = CountRows(mInputs[i].mKept);
    mKeptRows += mInputs[i].mKeptRows;
    // Of steps that are thinned out, the chunks are needed all the same.
    const Runs& kept = mInputs[i].mKept;
    const std::uint64_t span = kept.empty() ? 0 : kept.back().mOnePastLast - kept.front().mFirst;
    if (2 * span < mInputs[i].mRows) {
      // Other datasets of that segment are wiped as much.
      mRun.mInputs.Ahead().LeaveOut(static_cast<std::size_t>(mInputs[i].mFile));
    }
  }
}

void SteppedSeries::WriteRows(Tables::ColumnWriter& writer) {
  if (writer.TakesRows() && ShouldReadRows(sRowBlockValues)) {
    const auto read = [this](const Room& room) { ReadRows(sRowBlockValues, room); };
    ForEachPiece(read, [&writer](const PieceOfRows& rows) {
      writer.WriteRows(rows.mWhere, rows.mValues.get());
    });
    return;
  }
  ReadAll(writer.BlockValues(), [&writer](const ColumnBlock& piece) {
    return writer.Room(piece.mColumns * piece.mRows);
  });
}

void SteppedSeries::Join(CachedH5File& output) {
  TakeInAll(Depth::Values);
  Select(mRun.mOptions.mNoWipe);
  if (mRun.mOptions.mVerbose) {
    PrintSelection();
  }
  Write(output);
}

Tables::VirtualTable SteppedSeries::Mappings(const std::vector<std::string>& inputNames) const {
  Tables::VirtualTable table;
  for (const Stretch& stretch : StretchesWithin({0, 1, 0, mKeptRows})) {
    const Input& input = mInputs[stretch.mInput];
    table.mColumns = input.mLayout.mColumns;
    table.mMappings.push_back({inputNames[static_cast<std::size_t>(input.mFile)],
                               mRun.mInputs[input.mFile].Path(Name()) + TableWithin(),
                               input.mLayout.mRows,
                               {stretch.mRow, stretch.mRow + stretch.mRows},
                               stretch.mKeptRow});
  }
  return table;
}

void SteppedSeries::MakeView(CachedH5File& output, const std::vector<std::string>& inputNames) {
  TakeInAll(Depth::Times);
  Select(mRun.mOptions.mNoWipe);
  if (mRun.mOptions.mVerbose) {
    PrintSelection();
  }
  mView = Mappings(inputNames);
  REQUIRE(mView->mMappings.size()<=sMostMappings,
          "Of " << Name() << ", " << mView->mMappings.size() << " runs of rows are kept. A view of more than "
                << sMostMappings << " is too slow to be of use: join the files instead");
  Write(output);
}

Series::Remains SteppedSeries::RemainsOf(const Dat& table, std::string reason) const {
  const MyVector<double>& times = mTimes.back();
  Remains remains{table.Layout().mRows, times.size(), {}, {}, std::move(reason)};
  for (const double time : times) {
    remains.mKeptTimes.Include(time);
  }
  // What cannot be read otherwise may still have its time.
  std::string ignored;
  const std::uint64_t count = table.CountReadableRows_(ignored, 1);
  if (count > times.size()) {
    std::vector<double> lost(count - times.size());
    table.RetrieveColumns_({0, 1, times.size(), lost.size()}, lost.data());
    while (!lost.empty() && lost.back() == 0) {
      lost.pop_back();  // it was hardly written
    }
    for (const double time : lost) {
      remains.mLostTimes.Include(time);
    }
  }
  return remains;
}

Series::Remains SteppedSeries::Salvage(int file, CachedH5File& output) {
  Remains remains = TakeInWhole(file);
  mSteps.mRuns.resize(1);
  if (remains.mKept > 0) {
    mSteps.mRuns[0] = {{0, remains.mKept}};
  }
  mSteps.mKept = static_cast<std::int64_t>(remains.mKept);
  mSteps.mTotal = static_cast<std::int64_t>(remains.mTotal);
  SetKept();
  Write(output);
  return remains;
}

void SteppedSeries::PrintSelection() const {
  std::cout << Name() << " keeping " << mSteps.mKept << " steps out of " << mSteps.mTotal
            << ", maximum time-gap is " << mSteps.mMaximumGap << std::endl;
}
