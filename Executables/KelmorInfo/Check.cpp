#include "Executables/KelmorInfo/Check.hpp"

#include <algorithm>
#include <bit>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <vector>

#include "Executables/KelmorInfo/InputFiles.hpp"
#include "Executables/KelmorInfo/JsonParts.hpp"
#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/KelmorInfo/View.hpp"
#include "Executables/Series/Pieces.hpp"
#include "Executables/Series/SteppedSeries.hpp"
#include "Executables/Series/TextSeries.hpp"
#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Store/H5_ObjectDir.hpp"

namespace {

using H5_Objects::StepIndex;
using Tables::ColumnBlock;

// So many values are in memory at a time: of a joined table, and of what it was joined from.
constexpr std::uint64_t sBlockValues = 2 * 1024 * 1024;

// So many differences are told.
constexpr std::size_t sMostDifferences = 1000;
constexpr std::size_t sMostParts = 4;

// Ends the comparison of a dataset: its first difference is all that is told.
struct Mismatch {
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
    BeginReadingAhead();
    for (const Dataset& dataset : mDatasets) {
      for (Inputs* files : {&mInputs, &mJoined}) {
        files->Ahead().Reach(static_cast<std::size_t>(&dataset - mDatasets.data()));
      }
      mProgress.Next("checking " + dataset.mpKind->mTitle);
      mpDataset = &dataset;
      CheckDataset();
    }
    LookForMore();
    return std::move(mResult);
  }

 private:
  void Note(const std::string& name, const std::string& text) {
    if (mResult.mDiffering++ < sMostDifferences) {
      mResult.mDifferences.push_back({name, OneLine(text)});
    }
  }

  // Looks for what no join of the inputs has. Groups are made for what they hold, and are bare.
  void LookForMore() {
    std::set<std::string> expected;
    for (const Dataset& dataset : mDatasets) {
      expected.insert(dataset.mName);
    }
    for (const std::string& name : mJoined[0].GetNames("*", false)) {
      if (!expected.contains(name)) {
        Note(name, name + " is in " + mJoinedName + ", but not among what is joined");
      }
    }
    for (const std::string& group : mJoined[0].EmptyGroups()) {
      Note(group, group + " is an empty group in " + mJoinedName);
      expected.insert(group);  // is told once
    }
    for (const std::string& group : mJoined[0].GroupsWithAttributes()) {
      if (!expected.contains(group)) {
        OfJoined(group, [&] { CompareParts(group, H5_Objects::Dir::ClassID()); });
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
    const bool isSame = OfJoined(mpDataset->mName, [&] {
      RequirePresence(series->IsWritten());
      if (series->IsWritten()) {
        Compare(*series);
      }
    });
    if (isSame) {
      ++mResult.mDatasets;
      mResult.mBytes += series->Bytes();
    }
  }

  // Does what reads the joined file, and returns whether that is as it should be. A failure to read
  // it is a difference; what it does OfInputs() fails.
  template <class Action>
  bool OfJoined(const std::string& name, const Action& action) {
    const std::uint64_t before = mResult.mDiffering;
    mReadsInputs = false;
    mMute.emplace();
    try {
      mJoined.KeepObjectsOpenDuring(action);
    } catch (const Mismatch& mismatch) {
      Note(name, mismatch.mText);
      mJoined[0].CloseObjects();
    } catch (const CodeError& error) {
      if (mReadsInputs) {
        throw;
      }
      Note(name, name + " cannot be read from " + mJoinedName + ": " + ReasonOf(error));
      // Closes what the failure left open.
      mJoined[0].CloseFile();
    }
    mMute.reset();
    return mResult.mDiffering == before;
  }

  template <class Action>
  void OfInputs(const Action& action) {
    mReadsInputs = true;
    mMute.reset();
    action();
    mMute.emplace();
    mReadsInputs = false;
  }

  void Compare(Series& series) {
    const Dataset inJoined{mpDataset->mName, mpDataset->mpKind, {0}};
    const auto joined = MakeSeries({mJoined, mOptions, mProgress}, inJoined);
    const Tables::OpenVirtualTables ofView;
    for (const auto depth : {Series::Depth::Agreement, Series::Depth::Times}) {
      joined->TakeIn(0, depth);
      CompareProperties(joined->Properties(true), series.Properties(false));
    }
    if (auto* stepped = dynamic_cast<SteppedSeries*>(&series)) {
      CompareSteps(*stepped, dynamic_cast<SteppedSeries&>(*joined));
    } else if (const auto* text = dynamic_cast<TextSeries*>(&series)) {
      CompareTexts(*text, dynamic_cast<TextSeries&>(*joined).Text());
    }
    CompareParts(mpDataset->mName, mpDataset->mpKind->mExtension);
  }

  void CompareParts(const std::string& name, const std::string& type) {
    const H5_Object& object = mJoined[0].GetObjectForRead_(name, type);
    for (const auto& [parts, what] :
         {std::pair(object.ForeignParts(), " has what no join writes: "),
          std::pair(object.MissingParts(), " lacks what every join writes: ")}) {
      if (!parts.empty()) {
        throw Mismatch{name + " of " + mJoinedName + what + ListNames(parts, sMostParts)};
      }
    }
  }

  const std::string& FileName(std::size_t i) const {
    return mInputs.GivenName(mpDataset->mFiles[i]);
  }

  // Checks that what a join writes is there, if there is anything to write.
  void RequirePresence(bool isExpected) const {
    if (isExpected != mJoined[0].Exists(mpDataset->mName)) {
      throw Mismatch{mpDataset->mName + " is in " +
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
      throw Mismatch{text.str()};
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
      throw Mismatch{mpDataset->mName + " differs at character " + std::to_string(at) + " of " +
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
  void CompareRows(SteppedSeries& series, SteppedSeries& joined) {
    const bool isMemoryShort = mInputs.Ahead().IsMemoryShort() || mJoined.Ahead().IsMemoryShort();
    try {
      CompareRows(series, joined, !isMemoryShort);
    } catch (...) {
      // What is told of several differences does not depend on the memory.
      if (isMemoryShort) {
        CompareRows(series, joined, true);
      }
      throw;
    }
  }

  void CompareRows(SteppedSeries& series, SteppedSeries& joined, bool isOrderFixed) {
    const auto readJoined = [&](const SteppedSeries::Room& room) {
      const bool areRows =
          !isOrderFixed && series.ShouldReadRows(sBlockValues) && joined.CanReadRows(sBlockValues);
      areRows ? joined.ReadRows(sBlockValues, room)
              : joined.ReadAll(sBlockValues, room, isOrderFixed);
    };
    ForEachPiece(readJoined, [&](const PieceOfRows& there) {
      const auto readSame = [&](const SteppedSeries::Room& room) {
        series.Read(there.mWhere, sBlockValues, room);
      };
      OfInputs([&] {
        ForEachPiece(readSame, [&](const PieceOfRows& here) {
          for (const SteppedSeries::Stretch& stretch : series.StretchesWithin(here.mWhere)) {
            CompareStretch(series, stretch, here, there);
          }
        });
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
        throw Mismatch{mpDataset->mName + " differs" + series.ColumnText(c) + ": row " +
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
  const Dataset* mpDataset = nullptr;          // that is being checked
  bool mReadsInputs = false;                   // while what is compared is read
  std::optional<Vexa_H5::MuteH5Errors> mMute;  // while the joined file is
  CheckResult mResult;
  Progress mProgress;
};

}  // namespace

CheckResult CheckJoin(const std::string& joinedName, const JoinOptions& options) {
  const std::vector<InputFile> joinedFile = TryFiles({joinedName});
  const std::vector<InputFile> files = TryFiles(options.mInputs);
  if (!joinedFile[0].mIsHdf5) {
    RequireAllOpen(joinedFile);
  }
  RequireAllOpen(files);
  if (!joinedFile[0].mOpens) {
    const std::string text = joinedName + " cannot be read: " + joinedFile[0].mProblem;
    return {.mDifferences = {{"/", OneLine(text)}}, .mDiffering = 1};
  }
  Inputs joined({joinedName}, ReadAhead::Need::All);
  Inputs inputs(options.mInputs, options.Needs());
  CheckResult result = Checker(joined, inputs, options).Check();
  RequireUnchanged(joinedFile, joined);
  RequireUnchanged(files, inputs);
  return result;
}

void PrintCheck(std::ostream& os, const CheckResult& result, const std::string& joinedName,
                const JoinOptions& options) {
  for (const Difference& difference : result.mDifferences) {
    os << difference.mReason << '\n';
  }
  if (result.mDiffering > result.mDifferences.size()) {
    os << "and " << result.mDiffering - result.mDifferences.size() << " more\n";
  }
  os << Vexa::Printable(joinedName) << (result.IsRight() ? " is " : " is not ")
     << (result.mIsView ? "a view of " : "the join of ") << Counted(options.mInputs.size(), "file")
     << ": ";
  if (!result.IsRight()) {
    os << result.mDiffering
       << (result.mDiffering == 1 ? " dataset or group" : " datasets or groups")
       << (result.mDiffering == 1 ? " differs" : " differ") << "; the same are ";
  }
  os << Counted(result.mDatasets, "dataset") << ", " << Counted(result.mSteps, "step") << ", "
     << Size(result.mBytes)
     << (!result.IsRight() ? ""
         : result.mIsView  ? " where they are kept"
                           : " compared")
     << '\n';
}

void PrintCheckAsJson(std::ostream& os, const CheckResult& result, const std::string& joinedName,
                      const JoinOptions& options) {
  Json json = NewDocument();
  json["is_right"] = result.IsRight();
  json["is_view"] = result.mIsView;
  json["output"] = {{"name", joinedName}};
  json["files"] = NamesAsJson(options.mInputs);
  json["DeltaT"] = NumberAsJson(options.mDeltaT);
  json["NoWipe"] = options.mNoWipe;
  json["difference_count"] = result.mDiffering;
  json["differences"] = ArrayOf(result.mDifferences, [](const Difference& difference) {
    return Json{{"name", difference.mName}, {"reason", difference.mReason}};
  });
  json["dataset_count"] = result.mDatasets;
  json["steps"] = result.mSteps;
  json["bytes"] = result.mBytes;
  PrintJson(os, json);
}
