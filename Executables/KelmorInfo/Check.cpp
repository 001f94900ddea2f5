#include "Executables/KelmorInfo/Check.hpp"

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string_view>

#include "Executables/Kelmor/Join.hpp"
#include "Executables/Kelmor/JoinIndexed.hpp"
#include "Executables/KelmorInfo/CompareRows.hpp"
#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/Series/Agreement.hpp"
#include "Utils/Store/H5_ObjectCoef.hpp"

namespace {

using namespace H5_Objects;

// Ends the comparison: the first difference is all that is told.
struct Difference {
  std::string mText;
};

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

class Checker {
 public:
  Checker(InputFiles& joined, InputFiles& files, const JoinOptions& options)
      : mJoined(joined.Opened()),
        mJoinedName(joined[0].mName),
        mFiles(files),
        mOptions(options),
        mProgress(!options.mVerbose, CountDatasets(),
                  mJoined.TotalBytes() + files.Opened().TotalBytes()) {}

  CheckResult Check() {
    try {
      CheckNames();
      CheckKind("ver", "checking version records", &Checker::CheckVersion);
      CheckKind("dat", "checking tables", &Checker::CheckDat);
      CheckKind("coef", "checking sets of coefficients", &Checker::CheckCoef);
      CheckKind("tdm", "checking tensor series", &Checker::CheckTdm);
      CheckKind("txt", "checking texts", &Checker::CheckTxt);
    } catch (const Difference& difference) {
      mResult.mDifference = OneLine(difference.mText);
    }
    return mResult;
  }

 private:
  using Stage = void (Checker::*)(const JoinTask& task);
  using Runs = std::vector<std::vector<StepRun>>;  // per holder

  // How a difference in a table is told of: what stands in a row of a holder, and its columns.
  struct TableView {
    std::function<std::string(std::size_t holder, std::uint64_t row)> mRow;
    MyVector<std::string> mLegend;  // empty if columns are not told
  };

  std::uint64_t CountDatasets() const {
    return FindEntries(mFiles.Opened().Files(), "*", mOptions.mSkip).size();
  }

  void CheckNames() const {
    std::set<std::string> expected;
    for (const auto& [name, holders] : FindEntries(mFiles.Opened().Files(), "*", mOptions.mSkip)) {
      expected.insert(name);
    }
    for (const std::string& name : mJoined[0].GetNames("*", false)) {
      if (!expected.contains(name)) {
        throw Difference{name + " is in " + mJoinedName + ", but not among what is joined"};
      }
    }
  }

  void CheckKind(const std::string& kind, const std::string& title, Stage stage) {
    mProgress.Stage(title);
    const Holders found = FindEntries(mFiles.Opened().Files(), "*." + kind, mOptions.mSkip);
    for (const auto& [name, holders] : found) {
      mProgress.NextDataset();
      (this->*stage)({name, holders});
      ++mResult.mDatasets;
    }
  }

  const std::string& FileName(int opened) const { return mFiles.OpenedFile(opened).mName; }

  bool IsInJoined(const JoinTask& task) const { return mJoined[0].Exists(task.mName); }

  // What a join writes if there is anything to write.
  void RequirePresence(const JoinTask& task, bool isExpected) const {
    if (isExpected && !IsInJoined(task)) {
      throw Difference{task.mName + " is in " + FileName(task.mHolders[0]) + ", but not in " +
                       mJoinedName};
    }
    if (!isExpected && IsInJoined(task)) {
      throw Difference{task.mName + " is in " + mJoinedName + ", but all inputs of it are empty"};
    }
  }

  template <class T>
  void RequireSame(const JoinTask& task, const std::string& what, const T& joined,
                   const T& expected) const {
    if (!(joined == expected)) {
      std::ostringstream text;
      text << task.mName << ": the " << what << " is " << joined << " in " << mJoinedName
           << ", but should be " << expected;
      throw Difference{text.str()};
    }
  }

  void RequireSameBits(const JoinTask& task, const std::string& what, double joined,
                       double expected) const {
    if (!AreSameBits(&joined, &expected, 1)) {
      RequireSame(task, what, WithBits(joined, expected), WithBits(expected, joined));
    }
  }

  void CheckVersion(const JoinTask& task) {
    for (const CachedH5File& file : mFiles.Opened().Files()) {
      RequireNoSimilarRecord(file, task.mName);
    }
    VersionAgreement agreement(task.mName);
    VisitAgreeing<Version>(mFiles.Opened(), task.mHolders, task.mName, agreement,
                           [](const Version&) {});
    std::uint64_t characters = 0;
    for (const auto& [hash, help] : agreement.History()) {
      characters += hash.size() + help.size();
    }
    RequirePresence(task, characters > 0);
    if (characters == 0) {
      return;
    }
    mJoined.Visit<Version>(0, task.mName, [&](const Version& ver) {
      RequireSame(task, "version", ver.GetCurrentVersion(), agreement.Number());
      const Version::History history = ver.RetrieveVersionHistory();
      for (std::size_t i = 0; i < history.size(); ++i) {
        const auto& [hash, help] = agreement.History()[i];
        const std::string entry = "entry " + std::to_string(i);
        RequireSame(task, "hash of " + entry, history[i].first, hash);
        RequireSame(task, "text of " + entry, history[i].second, help);
      }
    });
    mResult.mBytes += characters;
  }

  void CheckTxt(const JoinTask& task) {
    std::string text;
    const bool isThere = IsInJoined(task);
    if (isThere) {
      mJoined.Visit<Txt>(0, task.mName, [&](Txt& txt) { text = TextOf(txt); });
    }
    std::size_t position = 0;
    for (const int file : task.mHolders) {
      const std::string part =
          mFiles.Opened().Visit<Txt>(file, task.mName, [](Txt& txt) { return TextOf(txt); });
      RequirePresence(task, isThere || !part.empty());
      const std::string_view there = std::string_view(text).substr(position, part.size());
      const auto differing = std::mismatch(there.begin(), there.end(), part.begin(), part.end());
      if (differing.second != part.end()) {
        const auto at = static_cast<std::size_t>(differing.second - part.begin());
        throw Difference{task.mName + " differs at character " + std::to_string(position + at) +
                         " of " + mJoinedName + ", which is character " + std::to_string(at) +
                         " of " + FileName(file)};
      }
      position += part.size();
    }
    RequirePresence(task, position > 0);
    RequireSame(task, "length of the text", text.size(), position);
    mResult.mBytes += position;
  }

  void CheckDat(const JoinTask& task) {
    TableAgreement agreement(task.mName);
    std::vector<MyVector<double>> times;
    VisitAgreeing<Dat>(mFiles.Opened(), task.mHolders, task.mName, agreement,
                       [&](const Dat& dat) { times.push_back(dat.RetrieveTimes()); });
    const SelectedSteps steps = SelectSteps(mOptions, times);
    RequirePresence(task, true);
    mJoined.Visit<Dat>(0, task.mName, [&](const Dat& dat) {
      RequireSame(task, "legend", dat.GetLegend(), agreement.Legend());
      RequireSame(task, "number of steps", dat.GetExtents()[0],
                  static_cast<unsigned long long>(steps.mKept));
    });
    const TableView view = {[&](std::size_t holder, std::uint64_t row) {
                              return "step " + std::to_string(row) +
                                     " (t = " + RoundTrip(times[holder][row]) + ")";
                            },
                            agreement.Legend()};
    CompareRows<Dat>(task, steps.mRuns, view, [](const Dat& dat) -> const Dat& { return dat; });
    mResult.mSteps += static_cast<std::uint64_t>(steps.mKept);
  }

  void CheckCoef(const JoinTask& task) {
    std::vector<StepIndex> indices;
    std::string timeDescription;
    std::string dataDescription;
    for (const int file : task.mHolders) {
      mFiles.Opened().Visit<Coef>(file, task.mName, [&](const Coef& coef) {
        indices.push_back(coef.RetrieveIndex_());
        TakeDescriptions(coef, indices.size() == 1, timeDescription, dataDescription);
      });
    }
    RequirePresence(task, true);
    const StepIndex index = mJoined.Visit<Coef>(0, task.mName, [&](const Coef& coef) {
      RequireSame(task, "description of the time", coef.GetTimeDescription(), timeDescription);
      RequireSame(task, "legend of the index", coef.Index().GetLegend(),
                  Coef::IndexLegend(timeDescription));
      RequireSame(task, "description of the data", coef.GetDataDescription(), dataDescription);
      return coef.RetrieveIndex_();
    });
    CheckIndexed<Coef>(task, indices, index);
  }

  void CheckTdm(const JoinTask& task) {
    TensorAgreement agreement(task.mName);
    std::vector<StepIndex> indices;
    std::string timeDescription;
    std::string dataDescription;
    const auto read = [&](const Tdm& tdm) {
      indices.push_back(tdm.RetrieveCheckedIndex_());
      TakeDescriptions(tdm, indices.size() == 1, timeDescription, dataDescription);
    };
    VisitAgreeing<Tdm>(mFiles.Opened(), task.mHolders, task.mName, agreement, read);
    RequirePresence(task, true);
    const StepIndex index = mJoined.Visit<Tdm>(0, task.mName, [&](const Tdm& tdm) {
      RequireSame(task, "tensor structure", tdm.GetStructure(), *agreement.Structure());
      RequireSame(task, "dimension of the meshes", tdm.GetDataMeshDim(), agreement.DataMeshDim());
      RequireSame(task, "description of the time", tdm.GetTimeDescription(), timeDescription);
      RequireSame(task, "legend of the index", tdm.Index().GetLegend(),
                  Tdm::IndexLegend(timeDescription, agreement.DataMeshDim()));
      RequireSame(task, "description of the data", tdm.GetDataDescription(), dataDescription);
      return tdm.RetrieveCheckedIndex_();
    });
    CheckIndexed<Tdm>(task, indices, index);
  }

  static void TakeDescriptions(const IndexedGroup& set, bool isFirst, std::string& time,
                               std::string& data) {
    if (isFirst) {
      time = set.GetTimeDescription();
      data = set.GetDataDescription();
    }
  }

  template <class KIND>
  void CheckIndexed(const JoinTask& task, const std::vector<StepIndex>& indices,
                    const StepIndex& index) {
    std::vector<MyVector<double>> times;
    for (const StepIndex& ofFile : indices) {
      times.emplace_back(ofFile.mTimes);
    }
    const SelectedSteps steps = SelectSteps(mOptions, times);
    CompareIndex(task, index, KeptIndex(indices, steps));
    mResult.mBytes += index.Size() * (2 + index.mExtras.size()) * sizeof(double);
    Runs runs;
    for (std::size_t i = 0; i < indices.size(); ++i) {
      runs.push_back(ValueRuns(indices[i], steps.mRuns[i]));
    }
    const TableView view = {
        [&](std::size_t holder, std::uint64_t row) {
          const StepIndex& of = indices[holder];
          const auto end = std::upper_bound(of.mEnds.begin(), of.mEnds.end(), row);
          const auto step = static_cast<std::size_t>(end - of.mEnds.begin());
          return "value " + std::to_string(row - of.Begin(step)) + " of step " +
                 std::to_string(step) + " (t = " + RoundTrip(of.mTimes[step]) + ")";
        },
        {}};
    CompareRows<KIND>(task, runs, view, [](const KIND& set) -> const Dat& { return set.Values(); });
    mResult.mSteps += static_cast<std::uint64_t>(steps.mKept);
  }

  void CompareIndex(const JoinTask& task, const StepIndex& joined,
                    const StepIndex& expected) const {
    RequireSame(task, "number of steps", joined.Size(), expected.Size());
    for (std::uint64_t i = 0; i < joined.Size(); ++i) {
      const std::string ofStep = " of step " + std::to_string(i);
      RequireSameBits(task, "time" + ofStep, joined.mTimes[i], expected.mTimes[i]);
      RequireSame(task, "number of values" + ofStep, joined.Values(i), expected.Values(i));
      for (std::size_t k = 0; k < expected.mExtras.size(); ++k) {
        RequireSameBits(task, "extent " + std::to_string(k) + " of the mesh" + ofStep,
                        joined.mExtras[k][i], expected.mExtras[k][i]);
      }
    }
  }

  // Compares kept rows of the holders' tables with the rows of the joined one, which are as many.
  template <class KIND, class TableOf>
  void CompareRows(const JoinTask& task, const Runs& runs, const TableView& view,
                   const TableOf& tableOf) {
    mJoined.Visit<KIND>(0, task.mName, [&](const KIND& object) {
      const Dat& joined = tableOf(object);
      for (const Tables::ColumnBlock& block : BlocksOf(joined.Layout())) {
        const auto values = std::make_unique_for_overwrite<double[]>(block.mColumns * block.mRows);
        joined.RetrieveColumns_(block, values.get());
        std::uint64_t position = 0;
        for (std::size_t i = 0; i < runs.size(); ++i) {
          const std::vector<JoinedPart> parts = PartsWithin(runs[i], block, position);
          if (!parts.empty()) {
            mFiles.Opened().Visit<KIND>(task.mHolders[i], task.mName, [&](const KIND& input) {
              RequireNoDifference(task, i, view,
                                  CompareParts(tableOf(input), parts, {block, values.get()}));
              TellProgress(tableOf(input), block.mColumns, CountRows(parts));
            });
          }
        }
        TellProgress(joined, block.mColumns, block.mRows);
        mResult.mBytes += block.mRows * block.mColumns * sizeof(double);
      }
    });
  }

  static std::uint64_t CountRows(const std::vector<JoinedPart>& parts) {
    std::uint64_t rows = 0;
    for (const JoinedPart& part : parts) {
      rows += part.mRows;
    }
    return rows;
  }

  void TellProgress(const Dat& table, std::uint64_t columns, std::uint64_t rows) {
    const Tables::TableLayout& layout = table.Layout();
    mProgress.Advance(layout.mStoredBytes, columns * rows, layout.mColumns * layout.mRows);
  }

  void RequireNoDifference(const JoinTask& task, std::size_t holder, const TableView& view,
                           const std::optional<RowDifference>& difference) const {
    if (!difference) {
      return;
    }
    const auto [column, row, joinedRow, value, joinedValue] = *difference;
    std::string text = task.mName + " differs";
    if (!view.mLegend.empty()) {
      text += " in column " + std::to_string(column) + " (" + view.mLegend[column] + ")";
    }
    text += ": row " + std::to_string(joinedRow) + " of " + mJoinedName + " has ";
    text += WithBits(joinedValue, value) + ", " + view.mRow(holder, row) + " of ";
    text += FileName(task.mHolders[holder]) + " has " + WithBits(value, joinedValue);
    throw Difference{text};
  }

  Inputs& mJoined;
  const std::string mJoinedName;
  InputFiles& mFiles;
  const JoinOptions& mOptions;
  CheckResult mResult;
  Progress mProgress;
};

}  // namespace

CheckResult CheckJoin(InputFiles& joined, InputFiles& files, const JoinOptions& options) {
  joined.RequireAllOpen();
  files.RequireAllOpen();
  return Checker(joined, files, options).Check();
}
