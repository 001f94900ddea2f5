#include "Executables/KelmorInfo/Check.hpp"

#include <algorithm>
#include <bit>
#include <set>
#include <sstream>
#include <vector>

#include "Executables/KelmorInfo/InputFiles.hpp"
#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/KelmorInfo/View.hpp"
#include "Executables/Series/Pieces.hpp"
#include "Executables/Series/SteppedSeries.hpp"
#include "Executables/Series/TextSeries.hpp"
#include "Utils/Process/Files.hpp"

namespace {

using H5_Objects::StepIndex;
using Tables::ColumnBlock;

// So many values are in memory at a time: of a joined table, and of what it was joined from.
constexpr std::uint64_t sBlockValues = 2 * 1024 * 1024;

// Ends the comparison: the first difference is all that is told.
struct Difference {
  std::string mText;
};

bool AreSameBits(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

// Numbers that print alike may still differ in their bits.
std::string WithBits(double value, double other) {
  std::string text = RoundTrip(value);
  if (text == RoundTrip(other)) {
    text += " (bits " + std::to_string(std::bit_cast<std::uint64_t>(value)) + ")";
  }
  return text;
}

class Checker {
 public:
  Checker(Inputs& joined, Inputs& inputs, const JoinOptions& options)
      : mJoined(joined),
        mJoinedName(joined.GivenName(0)),
        mInputs(inputs),
        mOptions(options),
        mDatasets(FindDatasets(inputs, options.mSkip)),
        mProgress(!options.mVerbose, mDatasets.size(), joined.TotalBytes() + inputs.TotalBytes()) {}

  CheckResult Check() {
    try {
      CheckNames();
      BeginReadingAhead();
      for (const Dataset& dataset : mDatasets) {
        for (Inputs* files : {&mInputs, &mJoined}) {
          files->Ahead().Reach(mResult.mDatasets);
        }
        mProgress.Next("checking " + dataset.mpKind->mTitle);
        mpDataset = &dataset;
        CheckDataset();
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

  void BeginReadingAhead() const {
    ReadAheadOf(mInputs, mDatasets);
    std::vector<Dataset> inJoined = mDatasets;
    for (Dataset& dataset : inJoined) {
      dataset.mFiles.assign(mJoined[0].Exists(dataset.mName) ? 1 : 0, 0);
    }
    ReadAheadOf(mJoined, inJoined);
  }

  void CheckDataset() {
    const auto series = MakeSeries({mInputs, mOptions, mProgress}, *mpDataset);
    series->TakeInAll(Series::Depth::Times);
    if (auto* stepped = dynamic_cast<SteppedSeries*>(series.get())) {
      stepped->Select(mOptions.mNoWipe);
    }
    RequirePresence(series->IsWritten());
    if (series->IsWritten()) {
      mJoined.KeepObjectsOpenDuring([&] { Compare(*series); });
      mResult.mBytes += series->Bytes();
    }
  }

  void Compare(Series& series) {
    const Dataset inJoined{mpDataset->mName, mpDataset->mpKind, {0}};
    const auto joined = MakeSeries({mJoined, mOptions, mProgress}, inJoined);
    for (const auto depth : {Series::Depth::Agreement, Series::Depth::Times}) {
      const Tables::OpenVirtualTables ofView;
      joined->TakeIn(0, depth);
      CompareProperties(joined->Properties(true), series.Properties(false));
    }
    if (auto* stepped = dynamic_cast<SteppedSeries*>(&series)) {
      CompareSteps(*stepped, dynamic_cast<SteppedSeries&>(*joined));
    } else if (const auto* text = dynamic_cast<TextSeries*>(&series)) {
      CompareTexts(*text, dynamic_cast<TextSeries&>(*joined).Text());
    }
  }

  const std::string& FileName(std::size_t i) const {
    return mInputs.GivenName(mpDataset->mFiles[i]);
  }

  // Checks that what a join writes is there, if there is anything to write.
  void RequirePresence(bool isExpected) const {
    if (isExpected != mJoined[0].Exists(mpDataset->mName)) {
      throw Difference{mpDataset->mName + " is in " +
                       (isExpected ? FileName(0) + ", but not in " + mJoinedName
                                   : mJoinedName + ", but all inputs of it are empty")};
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
    if (!AreSameBits(joined, expected)) {
      RequireSame(what, WithBits(joined, expected), WithBits(expected, joined));
    }
  }

  void CompareProperties(const std::vector<Series::Property>& joined,
                         const std::vector<Series::Property>& expected) const {
    for (std::size_t i = 0; i < std::min(joined.size(), expected.size()); ++i) {
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
    if (const Tables::VirtualTable* view = joined.VirtualTableOf(0)) {
      mResult.mIsView = true;
      for (int file = 0; file < mInputs.Size(); ++file) {  // whose values are not looked at
        mInputs.Ahead().LeaveOut(static_cast<std::size_t>(file));
      }
      RequireSame("type of the values", TypeText(joined.HoldsDoubles(0)), TypeText(true));
      CompareMappings(*view, series.Mappings(InputPaths()));
    } else {
      CompareRows(series, joined);
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

  std::vector<std::string> InputPaths() const {
    std::vector<std::string> paths;
    for (const CachedH5File& file : mInputs.Files()) {
      paths.push_back(file.Filename());
    }
    return paths;
  }

  static std::string TypeText(bool isDouble) { return isDouble ? "double" : "another"; }

  // Proves the values of a view by where they are taken from. A row counts for its file and its
  // number there; how long the table there is does not matter, since it may grow.
  void CompareMappings(const Tables::VirtualTable& view, const Tables::VirtualTable& expected) {
    RequireSame("number of mappings", view.mMappings.size(), expected.mMappings.size());
    for (std::size_t i = 0; i < view.mMappings.size(); ++i) {
      const Tables::Mapping& there = view.mMappings[i];
      const Tables::Mapping& here = expected.mMappings[i];
      const std::string ofMapping = " of mapping " + std::to_string(i);
      const std::string path = PathFromView(mJoined[0].Filename(), there.mFile);
      if (Vexa::IdentityOf(path) != Vexa::IdentityOf(here.mFile)) {
        RequireSame("file" + ofMapping, path, here.mFile);
      }
      RequireSame("dataset" + ofMapping, there.mTable, here.mTable);
      RequireSame("first row" + ofMapping, there.mRows.mFirst, here.mRows.mFirst);
      RequireSame("number of rows" + ofMapping, there.mRows.Size(), here.mRows.Size());
      RequireSame("place of the rows" + ofMapping, there.mFirstRow, here.mFirstRow);
    }
    const std::string fill = "value where a file cannot be read";
    RequireSame<std::string>(fill, view.mIsNaNElsewhere ? "NaN" : "another", "NaN");
  }

  // The joined table comes in pieces that end where its chunks end. For each of them, the other
  // series comes in pieces that end where chunks of its files end. So either inflates a chunk once.
  void CompareRows(SteppedSeries& series, SteppedSeries& joined) const {
    const auto readJoined = [&](const SteppedSeries::Room& room) {
      joined.ReadAll(sBlockValues, room);
    };
    ForEachPiece(readJoined, [&](const PieceOfRows& there) {
      const auto readSame = [&](const SteppedSeries::Room& room) {
        series.Read(there.mWhere, sBlockValues, room);
      };
      ForEachPiece(readSame, [&](const PieceOfRows& here) {
        for (const SteppedSeries::Stretch& stretch : series.StretchesWithin(here.mWhere)) {
          CompareStretch(series, stretch, here, there);
        }
      });
    });
  }

  void CompareStretch(const SteppedSeries& series, const SteppedSeries::Stretch& stretch,
                      const PieceOfRows& here, const PieceOfRows& there) const {
    const ColumnBlock& where = here.mWhere;
    for (std::uint64_t c = where.mFirstColumn; c < where.mFirstColumn + where.mColumns; ++c) {
      const double* values = here.At(c, stretch.mKeptRow);
      const auto [value, joined] =
          std::mismatch(values, values + stretch.mRows, there.At(c, stretch.mKeptRow), AreSameBits);
      if (const auto i = static_cast<std::uint64_t>(value - values); i < stretch.mRows) {
        throw Difference{mpDataset->mName + " differs" + series.ColumnText(c) + ": row " +
                         std::to_string(stretch.mKeptRow + i) + " of " + mJoinedName + " has " +
                         WithBits(*joined, *value) + ", " +
                         series.RowText(stretch.mInput, stretch.mRow + i) + " of " +
                         FileName(stretch.mInput) + " has " + WithBits(*value, *joined)};
      }
    }
  }

  Inputs& mJoined;
  const std::string mJoinedName;
  Inputs& mInputs;
  const JoinOptions& mOptions;
  const std::vector<Dataset> mDatasets;
  const Dataset* mpDataset = nullptr;  // that is being checked
  CheckResult mResult;
  Progress mProgress;
};

}  // namespace

CheckResult CheckJoin(const std::string& joinedName, const JoinOptions& options) {
  const std::vector<InputFile> joinedFile = TryFiles({joinedName});
  const std::vector<InputFile> files = TryFiles(options.mInputs);
  RequireAllOpen(joinedFile);
  RequireAllOpen(files);
  Inputs joined({joinedName}, ReadAhead::Need::All);
  Inputs inputs(options.mInputs, options.Needs());
  CheckResult result = Checker(joined, inputs, options).Check();
  RequireUnchanged(joinedFile, joined);
  RequireUnchanged(files, inputs);
  return result;
}
