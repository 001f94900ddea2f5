#include "Executables/KelmorInfo/Check.hpp"

#include <algorithm>
#include <cstring>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/Series/SteppedSeries.hpp"
#include "Executables/Series/TextSeries.hpp"

namespace {

using H5_Objects::StepIndex;
using Tables::ColumnBlock;

// Values in memory at a time: of a joined table, and as many of what it was joined from.
constexpr std::uint64_t sBlockValues = 2 * 1024 * 1024;

// Ends the comparison: the first difference is all that is told.
struct Difference {
  std::string mText;
};

bool AreSameBits(const double* a, const double* b, std::uint64_t count) {
  return std::memcmp(a, b, count * sizeof(double)) == 0;
}

// Numbers that print alike may still differ in their bits.
std::string WithBits(double value, double other) {
  std::string text = RoundTrip(value);
  if (text == RoundTrip(other)) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    text += " (bits " + std::to_string(bits) + ")";
  }
  return text;
}

// Cuts a joined table into the blocks in which it is compared: of whole chunks, and of some
// mebibytes unless a chunk is longer.
std::vector<ColumnBlock> BlocksOf(const Tables::TableLayout& layout) {
  std::vector<ColumnBlock> blocks;
  const std::uint64_t chunk = std::max<std::uint64_t>(layout.mChunkRows, 1);
  const std::uint64_t most = layout.mRows * layout.mColumns <= sBlockValues
                                 ? layout.mRows
                                 : std::max<std::uint64_t>(sBlockValues / chunk, 1) * chunk;
  const std::uint64_t rows =
      std::clamp<std::uint64_t>(most, 1, std::max<std::uint64_t>(layout.mRows, 1));
  const std::uint64_t columns = std::max<std::uint64_t>(sBlockValues / rows, 1);
  for (std::uint64_t row = 0; row < layout.mRows; row += rows) {
    for (std::uint64_t column = 0; column < layout.mColumns; column += columns) {
      blocks.push_back({column, std::min(columns, layout.mColumns - column), row,
                        std::min(rows, layout.mRows - row)});
    }
  }
  return blocks;
}

// Rows of some columns of a series in memory, and the reads that bring them there.
struct Rows {
  ColumnBlock mWhere;
  std::unique_ptr<double[]> mValues;
  Tables::PendingReads mReads;

  Tables::ColumnWriter::Place Room(const ColumnBlock& where) {
    mWhere = where;
    mValues.reset();
    mValues = std::make_unique_for_overwrite<double[]>(where.mColumns * where.mRows);
    return {mValues.get(), mReads};
  }
  const double* At(std::uint64_t column, std::uint64_t row) const {
    return mValues.get() + (column - mWhere.mFirstColumn) * mWhere.mRows + (row - mWhere.mFirstRow);
  }
};

class Checker {
 public:
  Checker(InputFiles& joined, InputFiles& files, const JoinOptions& options)
      : mJoined(joined.Opened()),
        mJoinedName(joined[0].mName),
        mFiles(files),
        mOptions(options),
        mDatasets(FindDatasets(files.Opened(), options.mSkip)),
        mProgress(!options.mVerbose, mDatasets.size(),
                  mJoined.TotalBytes() + files.Opened().TotalBytes()) {}

  CheckResult Check() {
    try {
      CheckNames();
      for (const Dataset& dataset : mDatasets) {
        mProgress.Stage("checking " + dataset.mpKind->mTitle);
        mProgress.NextDataset();
        CheckDataset(dataset);
        ++mResult.mDatasets;
      }
    } catch (const Difference& difference) {
      mResult.mDifference = OneLine(difference.mText);
    }
    return mResult;
  }

 private:
  void CheckNames() const {
    std::set<std::string> expected;
    for (const Dataset& dataset : mDatasets) {
      expected.insert(dataset.mName);
    }
    for (const std::string& name : mJoined[0].GetNames("*", false)) {
      if (!expected.contains(name)) {
        throw Difference{name + " is in " + mJoinedName + ", but not among what is joined"};
      }
    }
  }

  void CheckDataset(const Dataset& dataset) {
    mpDataset = &dataset;
    const auto series = MakeSeries({mFiles.Opened(), mOptions, mProgress}, dataset);
    series->TakeInAll(Series::Depth::Times);
    if (SteppedSeries* stepped = series->AsStepped()) {
      stepped->Select(mOptions.mNoWipe);
    }
    RequirePresence(series->IsWritten());
    if (!series->IsWritten()) {
      return;
    }
    const Inputs::KeptOpen keptOpen(mJoined);
    const Dataset inJoined{dataset.mName, dataset.mpKind, {0}};
    const SeriesRun joinedRun{mJoined, mOptions, mProgress};
    const auto described = MakeSeries(joinedRun, inJoined);
    described->TakeIn(0, Series::Depth::Agreement);
    CompareProperties(described->Properties(true), series->Properties(false));
    const auto joined = MakeSeries(joinedRun, inJoined);
    joined->TakeIn(0, Series::Depth::Times);
    if (series->AsStepped() != nullptr) {
      CompareSteps(*series->AsStepped(), *joined->AsStepped());
    } else if (series->AsText() != nullptr) {
      CompareTexts(*series->AsText(), joined->AsText()->Text());
    }
    mResult.mBytes += series->Bytes();
  }

  std::string FileName(std::size_t i) const {
    return mFiles.OpenedFile(mpDataset->mFiles[i]).mName;
  }

  // Checks that what a join writes is there, if there is anything to write.
  void RequirePresence(bool isExpected) const {
    const bool isThere = mJoined[0].Exists(mpDataset->mName);
    if (isExpected && !isThere) {
      throw Difference{mpDataset->mName + " is in " + FileName(0) + ", but not in " + mJoinedName};
    }
    if (!isExpected && isThere) {
      throw Difference{mpDataset->mName + " is in " + mJoinedName +
                       ", but all inputs of it are empty"};
    }
  }

  template <class T>
  void RequireSame(const std::string& what, const T& joined, const T& expected) const {
    if (!(joined == expected)) {
      std::ostringstream text;
      text << mpDataset->mName << ": the " << what << " is " << joined << " in " << mJoinedName
           << ", but should be " << expected;
      throw Difference{text.str()};
    }
  }

  void RequireSameBits(const std::string& what, double joined, double expected) const {
    if (!AreSameBits(&joined, &expected, 1)) {
      RequireSame(what, WithBits(joined, expected), WithBits(expected, joined));
    }
  }

  void CompareProperties(const std::vector<Series::Property>& joined,
                         const std::vector<Series::Property>& expected) const {
    for (std::size_t i = 0; i < expected.size(); ++i) {
      std::visit(
          [&](const auto& value) {
            using T = std::decay_t<decltype(value)>;
            RequireSame(expected[i].mName, std::get<T>(joined[i].mValue), value);
          },
          expected[i].mValue);
    }
  }

  void CompareTexts(const TextSeries& series, const std::string& joined) const {
    const auto [there, here] = std::ranges::mismatch(joined, series.Text());
    if (here != series.Text().end()) {
      const auto at = static_cast<std::size_t>(here - series.Text().begin());
      const auto end = std::ranges::upper_bound(series.Ends(), at);
      const std::size_t begin = end == series.Ends().begin() ? 0 : *(end - 1);
      throw Difference{mpDataset->mName + " differs at character " + std::to_string(at) + " of " +
                       mJoinedName + ", which is character " + std::to_string(at - begin) + " of " +
                       FileName(static_cast<std::size_t>(end - series.Ends().begin()))};
    }
    RequireSame("length of the text", joined.size(), series.Text().size());
  }

  void CompareSteps(SteppedSeries& series, SteppedSeries& joined) {
    joined.Select(true);
    RequireSame("number of steps", joined.Steps().mKept, series.Steps().mKept);
    CompareIndex(joined.KeptIndex(), series.KeptIndex());
    for (const ColumnBlock& block : BlocksOf(joined.Layout(0))) {
      CompareBlock(series, joined, block);
    }
    mResult.mSteps += static_cast<std::uint64_t>(series.Steps().mKept);
  }

  void CompareIndex(const StepIndex& joined, const StepIndex& expected) const {
    for (std::uint64_t i = 0; i < joined.Size(); ++i) {
      const std::string ofStep = " of step " + std::to_string(i);
      RequireSameBits("time" + ofStep, joined.mTimes[i], expected.mTimes[i]);
      RequireSame("number of values" + ofStep, joined.Values(i), expected.Values(i));
      for (std::size_t k = 0; k < expected.mExtras.size(); ++k) {
        RequireSameBits("extent " + std::to_string(k) + " of the mesh" + ofStep,
                        joined.mExtras[k][i], expected.mExtras[k][i]);
      }
    }
  }

  // The block ends where chunks of the joined table end. The other series hands it over in pieces
  // that end where chunks of its files end, so that either inflates a chunk once.
  void CompareBlock(SteppedSeries& series, SteppedSeries& joined, const ColumnBlock& block) const {
    Rows there;
    joined.Read(block, block.mColumns * block.mRows,
                [&there](const ColumnBlock& whole) { return there.Room(whole); });
    there.mReads.Finish();
    Rows here;
    const auto compare = [&] {
      here.mReads.Finish();
      for (const SteppedSeries::Stretch& stretch : series.StretchesWithin(here.mWhere)) {
        CompareStretch(series, stretch, here, there);
      }
    };
    series.Read(block, sBlockValues, [&](const ColumnBlock& piece) {
      compare();
      return here.Room(piece);
    });
    compare();
  }

  void CompareStretch(const SteppedSeries& series, const SteppedSeries::Stretch& stretch,
                      const Rows& here, const Rows& there) const {
    const ColumnBlock& where = here.mWhere;
    for (std::uint64_t c = where.mFirstColumn; c < where.mFirstColumn + where.mColumns; ++c) {
      const double* values = here.At(c, stretch.mKeptRow);
      const double* joined = there.At(c, stretch.mKeptRow);
      if (AreSameBits(values, joined, stretch.mRows)) {
        continue;
      }
      std::uint64_t i = 0;
      while (AreSameBits(values + i, joined + i, 1)) {
        ++i;
      }
      throw Difference{mpDataset->mName + " differs" + series.ColumnText(c) + ": row " +
                       std::to_string(stretch.mKeptRow + i) + " of " + mJoinedName + " has " +
                       WithBits(joined[i], values[i]) + ", " +
                       series.RowText(stretch.mInput, stretch.mRow + i) + " of " +
                       FileName(stretch.mInput) + " has " + WithBits(values[i], joined[i])};
    }
  }

  Inputs& mJoined;
  const std::string mJoinedName;
  InputFiles& mFiles;
  const JoinOptions& mOptions;
  const std::vector<Dataset> mDatasets;
  const Dataset* mpDataset = nullptr;  // that is being checked
  CheckResult mResult;
  Progress mProgress;
};

}  // namespace

CheckResult CheckJoin(InputFiles& joined, InputFiles& files, const JoinOptions& options) {
  joined.RequireAllOpen();
  files.RequireAllOpen();
  return Checker(joined, files, options).Check();
}
