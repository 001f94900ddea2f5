// How the kept rows of the files' tables are read: which parts of which tables together, and in how
// many passes.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include "Executables/Series/SteppedSeries.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/Memory.hpp"

using H5_Objects::Dat;
using Place = Tables::ColumnWriter::Place;
using Tables::ColumnBlock;
using Tables::RowRun;

namespace {

// Values that are read together where others are read ahead meanwhile.
constexpr std::uint64_t sWindowValues = 512 * 1024;

// Inputs whose windows are in memory together.
constexpr std::size_t sMostWindows = 4;

// Copies runs of a column whose row `firstRow` is the first in memory.
void CopyRuns(const double* column, std::uint64_t firstRow, const std::vector<RowRun>& runs,
              double* values) {
  for (const RowRun& run : runs) {
    values = std::copy_n(column + (run.mFirst - firstRow), run.Size(), values);
  }
}

}  // namespace

bool SteppedSeries::IsReadAhead(const Input& input) const {
  const ReadAhead& ahead = mRun.mInputs.Ahead();
  return ahead.HasPlan() && ahead.Reads(static_cast<std::size_t>(input.mFile));
}

void SteppedSeries::Approach(const Input& input, const ColumnBlock& columns, const RowRun& rows) {
  mRun.mInputs.Ahead().Approach({static_cast<std::size_t>(input.mFile), columns.mFirstColumn,
                                 columns.mFirstColumn + columns.mColumns, rows.mFirst,
                                 rows.mOnePastLast});
}

void SteppedSeries::RetrieveTimes(const Input& input, const Dat& table, MyVector<double>& times) {
  const RowRun all{0, times.size()};
  if (!IsReadAhead(input)) {
    table.RetrieveColumns_({0, 1, 0, all.Size()}, times.data(), mReads);
    return;
  }
  for (const Runs& pass : Passes(input, {all}, 1, sWindowValues)) {
    const RowRun& rows = pass.front();
    Approach(input, {0, 1}, {rows.mFirst, all.mOnePastLast});
    table.RetrieveColumns_({0, 1, rows.mFirst, rows.Size()}, times.data() + rows.mFirst, mReads);
  }
}

SteppedSeries::Runs SteppedSeries::KeptWithin(const Input& input, const ColumnBlock& block) const {
  Runs runs;
  const std::uint64_t blockEnd = block.mFirstRow + block.mRows;
  std::uint64_t position = input.mFirstKept;
  // Blocks may be many, and so may be the runs of all files.
  if (position >= blockEnd || position + input.mKeptRows <= block.mFirstRow) {
    return runs;
  }
  for (const RowRun& run : input.mKept) {
    const std::uint64_t begin = std::max(position, block.mFirstRow);
    const std::uint64_t end = std::min(position + run.Size(), blockEnd);
    if (begin < end) {
      runs.push_back({run.mFirst + (begin - position), run.mFirst + (end - position)});
    }
    position += run.Size();
  }
  return runs;
}

std::vector<SteppedSeries::Stretch> SteppedSeries::StretchesWithin(const ColumnBlock& block) const {
  std::vector<Stretch> stretches;
  std::uint64_t keptRow = block.mFirstRow;
  for (std::size_t i = 0; i < mInputs.size(); ++i) {
    for (const RowRun& run : KeptWithin(mInputs[i], block)) {
      stretches.push_back({i, run.mFirst, run.Size(), keptRow});
      keptRow += run.Size();
    }
  }
  return stretches;
}

// Cuts runs where windows of whole chunks end, so that each chunk is inflated once. The runs of one
// window are read together.
std::vector<SteppedSeries::Runs> SteppedSeries::Passes(const Input& input, const Runs& runs,
                                                       std::uint64_t columns,
                                                       std::uint64_t most) const {
  const std::uint64_t chunk = std::max<std::uint64_t>(input.mLayout.mChunkRows, 1);
  const std::uint64_t window = std::max<std::uint64_t>(most / columns / chunk, 1) * chunk;
  std::vector<Runs> passes;
  for (const RowRun& run : runs) {
    for (std::uint64_t first = run.mFirst; first < run.mOnePastLast;) {
      const std::uint64_t end = std::min((first / window + 1) * window, run.mOnePastLast);
      if (passes.empty() || first / window != passes.back().back().mFirst / window) {
        passes.emplace_back();
      }
      passes.back().push_back({first, end});
      first = end;
    }
  }
  return passes;
}

void SteppedSeries::Read(const ColumnBlock& block, std::uint64_t most, const Room& room) {
  std::optional<Place> whole;  // stays empty if the block is read in pieces
  if (block.mColumns > 1 || block.mRows <= most) {
    whole.emplace(room(block));
  }
  const std::uint64_t lastColumn = block.mFirstColumn + block.mColumns - 1;
  std::uint64_t keptRow = block.mFirstRow;
  for (std::size_t i = 0; i < mInputs.size(); ++i) {
    Input& input = mInputs[i];
    const Runs runs = KeptWithin(input, block);
    if (runs.empty()) {
      TellProgress(input, block, 0);
      continue;
    }
    const bool isTime = mHasTimeColumn && lastColumn == 0 && HoldsTimes(i);
    const bool isInMemory =
        isTime || (input.Has(block.mFirstColumn, runs) && input.Has(lastColumn, runs));
    const bool isAtOnce = whole && (isInMemory || input.HasColumnsApart() || mMixedRows > 0);
    const bool isOnePass = isAtOnce && (isInMemory || !IsReadAhead(input));
    const std::uint64_t window =
        isAtOnce || IsReadAhead(input) ? std::min(most, sWindowValues) : most;
    const auto fetch = [&](const Dat* pTable) {
      for (const Runs& pass :
           isOnePass ? std::vector<Runs>(1, runs) : Passes(input, runs, block.mColumns, window)) {
        const std::uint64_t rows = CountRows(pass);
        if (pTable != nullptr) {
          Approach(input, block, {pass.front().mFirst, input.mKept.back().mOnePastLast});
        }
        Fetch(i, pTable, block, pass, most,
              whole ? Place{whole->mpValues + (keptRow - block.mFirstRow), whole->mReads}
                    : room({block.mFirstColumn, block.mColumns, keptRow, rows}));
        keptRow += rows;
        TellProgress(input, block, rows);
      }
    };
    if (isInMemory) {
      fetch(nullptr);
    } else {
      VisitTable(input.mFile, [&](const Dat& dat) {
        REQUIRE(dat.GetExtents()[0]==mInputs[i].mRows, "The file changed while it was read");
        fetch(&dat);
      });
    }
  }
}

// Columns go `columns.mRows` apart.
void SteppedSeries::Fetch(std::size_t i, const Dat* pTable, const ColumnBlock& columns,
                          const Runs& runs, std::uint64_t most, Place place) {
  Input& input = mInputs[i];
  const std::uint64_t end = columns.mFirstColumn + columns.mColumns;
  double* values = place.mpValues;
  for (std::uint64_t column = columns.mFirstColumn; column < end; ++column) {
    if (mHasTimeColumn && column == 0 && HoldsTimes(i)) {
      CopyRuns(mTimes[i].data(), 0, runs, values);
    } else if (!input.Has(column, runs) && input.HasColumnsApart()) {
      pTable->RetrieveRuns_(column, runs, values, place.mReads);
    } else {
      if (!input.Has(column, runs)) {
        const std::uint64_t rows = runs.back().mOnePastLast - runs.front().mFirst;
        // Windows that no join holds may be needed again, but files may be many.
        if (mHeldBytes == 0 && mMixedRows == 0 && input.mValues == nullptr) {
          mWindowed.push_back(i);
          if (mWindowed.size() > sMostWindows) {
            mInputs[mWindowed.front()].mValues.reset();
            mWindowed.pop_front();
          }
        }
        Tables::PendingReads reads;
        input.Fill(*pTable,
                   NextWindow(input, {column, end - column, runs.front().mFirst, rows}, most),
                   reads);
        reads.Finish();
      }
      const Tables::ColumnBlock& window = input.mWindow;
      CopyRuns(input.mValues.get() + (column - window.mFirstColumn) * window.mRows,
               window.mFirstRow, runs, values);
    }
    values += columns.mRows;
  }
}

// What to read of a table with mixed columns: for a join as many whole columns as the limit allows,
// else of the columns that are wanted as many as a chunk has, or as few values as asked for.
ColumnBlock SteppedSeries::NextWindow(const Input& input, const ColumnBlock& wanted,
                                      std::uint64_t most) const {
  const std::uint64_t column = wanted.mFirstColumn;
  if (mMixedRows > 0) {
    const std::uint64_t limit = (mRun.mOptions.mCacheSize - mHeldBytes) / sizeof(double);
    return {column,
            std::clamp<std::uint64_t>(limit / mMixedRows, 1, input.mLayout.mColumns - column), 0,
            input.mRows};
  }
  const std::uint64_t columns =
      std::max<std::uint64_t>({most / wanted.mRows, input.mLayout.mChunkColumns, 1});
  return {column, std::min(columns, wanted.mColumns), wanted.mFirstRow, wanted.mRows};
}

// A file of which nothing is kept counts as read with the first rows.
void SteppedSeries::TellProgress(const Input& input, const ColumnBlock& block,
                                 std::uint64_t rows) const {
  const bool isWiped = input.mKeptRows == 0;
  const std::uint64_t done = isWiped && block.mFirstRow == 0 ? 1 : rows;
  mRun.mProgress.Advance(input.mStoredBytes, block.mColumns * done,
                         input.mLayout.mColumns * (isWiped ? 1 : input.mKeptRows));
}

void SteppedSeries::ReadAll(std::uint64_t most, const Room& room, bool isOrderFixed) {
  if (mKeptRows == 0) {
    return;
  }
  const std::uint64_t columns = mInputs.front().mLayout.mColumns;
  const std::uint64_t together = ColumnsTogether(most, isOrderFixed);
  for (std::uint64_t first = 0; first < columns; first += together) {
    Read({first, std::min(together, columns - first), 0, mKeptRows}, most, room);
  }
}

// Whoever takes columns may have two such blocks, and what one of them is encoded to.
std::uint64_t SteppedSeries::ColumnsTogether(std::uint64_t most, bool isOrderFixed) const {
  if (!isOrderFixed && mRun.mInputs.Ahead().IsMemoryShort() &&
      std::ranges::any_of(mInputs, [this](const Input& input) { return IsReadAhead(input); })) {
    const std::uint64_t limit = std::min(mRun.mOptions.mCacheSize, Vexa::MemoryLeft() / 2);
    most = std::max(most, limit / sizeof(double) / 3);
  }
  return std::clamp<std::uint64_t>(most / mKeptRows, 1, mInputs.front().mLayout.mColumns);
}

void SteppedSeries::ReadRows(std::uint64_t most, const Room& room) {
  const std::uint64_t columns = mInputs.front().mLayout.mColumns;
  const std::uint64_t rows = std::max<std::uint64_t>(most / columns, 1);
  for (std::uint64_t first = 0; first < mKeptRows; first += rows) {
    Read({0, columns, first, std::min(rows, mKeptRows - first)}, most, room);
  }
}

bool SteppedSeries::CanReadRows(std::uint64_t most) const {
  constexpr std::uint64_t least = 8;  // chunks in a block
  return std::ranges::all_of(mInputs, [most](const Input& input) {
    const Tables::TableLayout& layout = input.mLayout;
    return input.HasColumnsApart() &&
           (layout.mFilters.empty() || least * layout.mChunkRows * layout.mColumns <= most);
  });
}

bool SteppedSeries::ShouldReadRows(std::uint64_t most) const {
  return mKeptRows > 0 && ColumnsTogether(most) < mInputs.front().mLayout.mColumns &&
         mRun.mInputs.Ahead().IsMemoryShort() && CanReadRows(most);
}

std::uint64_t SteppedSeries::LongestChunk() const {
  std::uint64_t rows = 0;
  for (const Input& input : mInputs) {
    rows = std::max(rows, std::min(input.mLayout.mChunkRows, input.mRows));
  }
  return rows;
}

bool SteppedSeries::HasColumnsApart() const {
  return std::ranges::all_of(mInputs, &Input::HasColumnsApart);
}
