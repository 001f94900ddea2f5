#include "Executables/KelmorInfo/Plan.hpp"

#include <algorithm>
#include <cmath>

#include "Executables/Kelmor/Join.hpp"
#include "Executables/Kelmor/JoinIndexed.hpp"
#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/Series/Agreement.hpp"
#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Store/H5_ObjectCoef.hpp"
#include "Utils/StringParsing/PathUtilities.hpp"

namespace {

using namespace H5_Objects;

constexpr std::uint64_t sDouble = sizeof(double);

// Times of the kept steps, one after the other.
std::vector<double> KeptTimes(const std::vector<MyVector<double>>& times,
                              const SelectedSteps& steps) {
  std::vector<double> kept;
  kept.reserve(static_cast<std::size_t>(steps.mKept));
  for (std::size_t i = 0; i < times.size(); ++i) {
    for (const StepRun& run : steps.mRuns[i]) {
      kept.insert(kept.end(), times[i].begin() + run.mFirst, times[i].begin() + run.mOnePastLast);
    }
  }
  return kept;
}

// For each kept step, whether a gap follows it.
std::vector<bool> FindGaps(const std::vector<double>& kept) {
  std::vector<bool> gapFollows(kept.size(), false);
  const auto spacing = [&kept](std::size_t i) { return kept[i + 1] - kept[i]; };
  for (std::size_t i = 0; kept.size() >= 3 && i + 1 < kept.size(); ++i) {
    const double before = i > 0 ? std::abs(spacing(i - 1)) : 0;
    const double after = i + 2 < kept.size() ? std::abs(spacing(i + 1)) : 0;
    gapFollows[i] = spacing(i) > 4 * std::max(before, after);
  }
  return gapFollows;
}

// Cuts the steps of one file into pieces. Its first kept step is the `keptBefore`-th of all.
PlannedFile PlanFile(int file, const MyVector<double>& times, const std::vector<StepRun>& kept,
                     const std::vector<bool>& gapFollows, std::uint64_t keptBefore) {
  PlannedFile planned;
  planned.mFile = file;
  planned.mTotal = times.size();
  std::uint64_t begin = 0;
  const auto cut = [&](bool isKept, std::uint64_t end) {
    if (begin < end) {
      planned.mPieces.push_back({isKept, end - begin, times[begin], times[end - 1]});
    }
    begin = end;
  };
  for (const StepRun& run : kept) {
    cut(false, run.mFirst);
    for (std::uint64_t step = run.mFirst; step < run.mOnePastLast; ++step) {
      if (gapFollows[keptBefore + planned.mKept]) {
        cut(true, step + 1);
      }
      ++planned.mKept;
    }
    cut(true, run.mOnePastLast);
  }
  cut(false, times.size());
  return planned;
}

class Planner {
 public:
  Planner(InputFiles& files, const JoinOptions& options) : mFiles(files), mOptions(options) {
    mPlan.mFiles = files.Files();
    mPlan.mDeltaT = options.mDeltaT;
    mPlan.mNoWipe = options.mNoWipe;
    for (const InputFile& file : mPlan.mFiles) {
      if (!file.mOpens) {
        const std::string& advice = file.mProblem.mAdvice;
        Disagree("", file.mName, file.mProblem.mReason + (advice.empty() ? "" : ". " + advice));
      }
    }
    if (const std::string& output = options.mOutput; FileExists(output)) {
      Disagree("", output, "The output file exists already");
    } else if (output.ends_with('/')) {
      Disagree("", output, "The output is not the name of a file");
    } else if (!output.empty() && !DirectoryExists(GetDirectoryFromPath(output))) {
      Disagree("", output, "The directory of the output file does not exist");
    }
  }

  Plan Make() {
    PlanKind("ver", &Planner::PlanVersion);
    PlanKind("dat", &Planner::PlanDat);
    PlanKind("coef", &Planner::PlanCoef);
    PlanKind("tdm", &Planner::PlanTdm);
    PlanKind("txt", &Planner::PlanTxt);
    return std::move(mPlan);
  }

 private:
  using Stage = void (Planner::*)(PlannedDataset&, const std::vector<int>&);

  void PlanKind(const std::string& kind, Stage stage) {
    const Holders found = FindEntries(mFiles.Opened().Files(), "*." + kind, mOptions.mSkip);
    for (const auto& [name, holders] : found) {
      PlannedDataset dataset;
      dataset.mName = name;
      dataset.mKind = kind;
      const std::size_t before = mPlan.mDisagreements.size();
      mSteps = {};
      (this->*stage)(dataset, holders);
      dataset.mAgrees = mPlan.mDisagreements.size() == before;
      dataset.mSteps = ShareSteps();
      mPlan.mBytes += dataset.mBytes;
      mPlan.mDatasets.push_back(std::move(dataset));
    }
  }

  // The number of the steps just planned among the plan's, which gets them if they are new.
  std::size_t ShareSteps() {
    std::vector<PlannedSteps>& all = mPlan.mSteps;
    const auto found = std::find(all.begin(), all.end(), mSteps);
    const auto number = static_cast<std::size_t>(found - all.begin());
    if (found == all.end()) {
      all.push_back(std::move(mSteps));
    }
    return number;
  }

  void Disagree(const std::string& dataset, const std::string& file, const std::string& reason) {
    mPlan.mDisagreements.push_back({dataset, file, reason});
  }

  // Does something for one file. A failure is noted, and the next file has its turn.
  template <class Action>
  bool Try(const std::string& dataset, int opened, const Action& action) {
    try {
      action();
      return true;
    } catch (const CodeError& error) {
      Disagree(dataset, mFiles.OpenedFile(opened).mName, ReasonOf(error));
      // What the failure left open.
      mFiles.Opened()[opened].CloseFile();
      return false;
    }
  }

  // Hands the dataset in each file that holds it to `read`; counts the files that it succeeds on.
  template <class KIND, class Read>
  void ForEachHolder(PlannedDataset& dataset, const std::vector<int>& holders, const Read& read) {
    for (const int file : holders) {
      if (Try(dataset.mName, file,
              [&] { mFiles.Opened().Visit<KIND>(file, dataset.mName, read); })) {
        mSteps.mFiles.push_back({mFiles.NumberOf(file), 0, 0, {}});
      }
    }
  }

  // The same for files that must agree: those that are not like the first are not counted, and
  // told together.
  template <class KIND, class AGREEMENT, class Read>
  void ForEachAgreeing(PlannedDataset& dataset, const std::vector<int>& holders,
                       AGREEMENT& agreement, const Read& read) {
    for (const int file : holders) {
      bool agrees = true;
      const auto readAgreeing = [&](const KIND& object) {
        agrees = agreement.Take(object, file);
        if (agrees) {
          read(object);
        }
      };
      if (Try(dataset.mName, file,
              [&] { mFiles.Opened().Visit<KIND>(file, dataset.mName, readAgreeing); }) &&
          agrees) {
        mSteps.mFiles.push_back({mFiles.NumberOf(file), 0, 0, {}});
      }
    }
    if (agreement.IsReached()) {
      return;
    }
    Disagreement disagreement{dataset.mName, "", OneLine(agreement.Reason())};
    for (const Agreement::Group& group : agreement.Groups()) {
      PlannedValue& value = disagreement.mValues.emplace_back(PlannedValue{group.mValue, {}});
      for (const int file : group.mFiles) {
        value.mFiles.push_back(mFiles.OpenedFile(file).mName);
      }
    }
    mPlan.mDisagreements.push_back(std::move(disagreement));
  }

  SelectedSteps Select(const std::vector<MyVector<double>>& times) {
    SelectedSteps steps = SelectSteps(mOptions, times);
    mSteps.mHasTimes = true;
    mSteps.mKept = static_cast<std::uint64_t>(steps.mKept);
    mSteps.mTotal = static_cast<std::uint64_t>(steps.mTotal);
    mSteps.mMaximumGap = steps.mMaximumGap;
    const std::vector<double> kept = KeptTimes(times, steps);
    const std::vector<bool> gapFollows = FindGaps(kept);
    for (std::size_t i = 0; i + 1 < kept.size(); ++i) {
      if (gapFollows[i]) {
        mSteps.mGaps.push_back({kept[i], kept[i + 1]});
      }
    }
    std::uint64_t keptBefore = 0;
    for (std::size_t i = 0; i < times.size(); ++i) {
      PlannedFile& file = mSteps.mFiles[i];
      file = PlanFile(file.mFile, times[i], steps.mRuns[i], gapFollows, keptBefore);
      keptBefore += file.mKept;
    }
    return steps;
  }

  void PlanVersion(PlannedDataset& dataset, const std::vector<int>& holders) {
    for (int file = 0; file < mFiles.Opened().Size(); ++file) {
      Try(dataset.mName, file,
          [&] { RequireNoSimilarRecord(mFiles.Opened()[file], dataset.mName); });
    }
    VersionAgreement agreement(dataset.mName);
    ForEachAgreeing<Version>(dataset, holders, agreement, [](const Version&) {});
    for (const auto& [hash, help] : agreement.History()) {
      dataset.mBytes += hash.size() + help.size();
    }
  }

  void PlanDat(PlannedDataset& dataset, const std::vector<int>& holders) {
    TableAgreement agreement(dataset.mName);
    std::vector<MyVector<double>> times;
    ForEachAgreeing<Dat>(dataset, holders, agreement, [&](const Dat& dat) {
      dat.RequireReadable();
      times.push_back(dat.RetrieveTimes());
    });
    Select(times);
    dataset.mBytes = mSteps.mKept * static_cast<std::uint64_t>(agreement.Columns()) * sDouble;
  }

  void PlanCoef(PlannedDataset& dataset, const std::vector<int>& holders) {
    std::vector<StepIndex> indices;
    ForEachHolder<Coef>(dataset, holders, [&](const Coef& coef) {
      coef.Values().RequireReadable();
      indices.push_back(coef.RetrieveIndex_());
    });
    PlanIndexed(dataset, indices, 2);
  }

  void PlanTdm(PlannedDataset& dataset, const std::vector<int>& holders) {
    TensorAgreement agreement(dataset.mName);
    std::vector<StepIndex> indices;
    ForEachAgreeing<Tdm>(dataset, holders, agreement, [&](const Tdm& tdm) {
      tdm.Values().RequireReadable();
      indices.push_back(tdm.RetrieveCheckedIndex_());
    });
    PlanIndexed(dataset, indices, 2 + static_cast<std::uint64_t>(agreement.DataMeshDim()));
  }

  void PlanIndexed(PlannedDataset& dataset, const std::vector<StepIndex>& indices,
                   std::uint64_t indexColumns) {
    std::vector<MyVector<double>> times;
    for (const StepIndex& index : indices) {
      times.emplace_back(index.mTimes);
    }
    const SelectedSteps steps = Select(times);
    std::uint64_t values = mSteps.mKept * indexColumns;
    for (std::size_t i = 0; i < indices.size(); ++i) {
      values += CountValues(indices[i], steps.mRuns[i]);
    }
    dataset.mBytes = values * sDouble;
  }

  void PlanTxt(PlannedDataset& dataset, const std::vector<int>& holders) {
    ForEachHolder<Txt>(dataset, holders, [&](Txt& txt) { dataset.mBytes += TextOf(txt).size(); });
  }

  InputFiles& mFiles;
  const JoinOptions& mOptions;
  Plan mPlan;
  PlannedSteps mSteps;  // of the dataset that is being planned
};

}  // namespace

Plan MakePlan(InputFiles& files, const JoinOptions& options) {
  const Vexa_H5::MuteH5Errors mute;
  return Planner(files, options).Make();
}
