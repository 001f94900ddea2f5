#include "Executables/KelmorInfo/Plan.hpp"

#include <algorithm>
#include <cmath>

#include "Executables/KelmorInfo/PlanWarnings.hpp"
#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/Series/SteppedSeries.hpp"
#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/StringParsing/PathUtilities.hpp"

namespace {

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

// Cuts the steps of one file into pieces. `gapFollows` says of its first kept step whether a gap
// follows it, and then of the first of the next file.
void PlanFile(PlannedFile& planned, const MyVector<double>& times, const std::vector<StepRun>& kept,
              std::vector<bool>::const_iterator& gapFollows) {
  planned.mTotal = times.size();
  planned.mTimeless = static_cast<std::uint64_t>(
      std::ranges::count_if(times, [](double time) { return std::isnan(time); }));
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
      if (*gapFollows++) {
        cut(true, step + 1);
      }
    }
    cut(true, run.mOnePastLast);
    planned.mKept += run.Size();
  }
  cut(false, times.size());
}

class Planner {
 public:
  explicit Planner(const JoinOptions& options)
      : mOptions(options), mInputs(TryInputs()), mWarnings(mInputs, mOptions) {
    mPlan.mDeltaT = options.mDeltaT;
    mPlan.mNoWipe = options.mNoWipe;
    if (const std::string& output = options.mOutput; FileExists(output)) {
      Disagree("", output, "The output file exists already");
    } else if (output.ends_with('/')) {
      Disagree("", output, "The output is not the name of a file");
    } else if (!output.empty() && !DirectoryExists(GetDirectoryFromPath(output))) {
      Disagree("", output, "The directory of the output file does not exist");
    }
  }

  Plan Make() {
    const std::vector<Dataset> datasets = FindDatasets(mInputs, mOptions.mSkip);
    ReadAheadOf(mInputs, datasets);
    Progress progress(true, datasets.size(), 0);
    for (const Dataset& dataset : datasets) {
      mInputs.Ahead().Reach(mPlan.mDatasets.size());
      progress.Next("planning");
      mPlan.mDatasets.push_back(PlanDataset(dataset, progress));
      mPlan.mBytes += mPlan.mDatasets.back().mBytes;
    }
    mWarnings.LookAtGroups();
    mPlan.mWarnings = mWarnings.Finish();
    for (const CachedH5File& file : mInputs.Files()) {
      for (const auto& [path, stamp] : file.ExternalFiles()) {
        mPlan.mExternalFiles.insert(path);
      }
    }
    return std::move(mPlan);
  }

 private:
  // Returns the names of the files that open, and notes why the others do not.
  MyVector<std::string> TryInputs() {
    mPlan.mFiles = TryFiles(mOptions.mInputs);
    std::vector<std::string> names;
    for (std::size_t i = 0; i < mPlan.mFiles.size(); ++i) {
      const InputFile& file = mPlan.mFiles[i];
      if (file.mOpens) {
        names.push_back(file.mName);
        mNumbers.push_back(static_cast<int>(i));
      } else {
        Disagree("", file.mName, file.mProblem + (file.mAdvice.empty() ? "" : ". ") + file.mAdvice);
      }
    }
    return MyVector<std::string>(names);
  }

  PlannedDataset PlanDataset(const Dataset& dataset, Progress& progress) {
    PlannedDataset planned{dataset.mName, dataset.mpKind->mExtension};
    const std::size_t before = mPlan.mDisagreements.size();
    mSteps = {};
    const auto series = MakeSeries({mInputs, mOptions, progress}, dataset);
    for (int file = 0; file < mInputs.Size(); ++file) {
      Try(dataset, file, [&] { series->RequireJoinable(mInputs[file]); });
    }
    for (const int file : dataset.mFiles) {
      bool isMisfit = true;
      Try(dataset, file, [&] {
        series->TakeIn(file, Series::Depth::TimesIfReadable);
        isMisfit = !series->Agreed().Includes(file);
      });
      const int number = mNumbers[static_cast<std::size_t>(file)];
      if (isMisfit) {
        mSteps.mMisfits.push_back({number});
        ReadMisfit(dataset, file, progress);
      } else {
        mSteps.mFiles.push_back({number, 0, 0, {}});
      }
    }
    ReportGroups(dataset, series->Agreed());
    if (auto* stepped = dynamic_cast<SteppedSeries*>(series.get())) {
      PlanSteps(*stepped);
    }
    mWarnings.LookAt(dataset, *series, mSteps);
    planned.mBytes = series->Bytes();
    planned.mAgrees = mPlan.mDisagreements.size() == before;
    planned.mSteps = ShareSteps();
    return planned;
  }

  // Looks at the file alone: what disagrees with others has times all the same.
  void ReadMisfit(const Dataset& dataset, int file, Progress& progress) {
    try {
      const auto alone = MakeSeries({mInputs, mOptions, progress}, dataset);
      alone->TakeIn(file, Series::Depth::Times);
      TimeRange range;
      if (const auto* stepped = dynamic_cast<SteppedSeries*>(alone.get())) {
        for (const double time : stepped->Times()[0]) {
          if (std::isfinite(time)) {
            range.Include(time);
          }
        }
      }
      if (!range.IsEmpty()) {
        mSteps.mMisfits.back() = {mSteps.mMisfits.back().mFile, true, range.mFirst, range.mLast};
      }
    } catch (const CodeError&) {
      mInputs[file].CloseFile();  // and all that the failure left open
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
  void Try(const Dataset& dataset, int file, const Action& action) {
    try {
      action();
    } catch (const CodeError& error) {
      Disagree(dataset.mName, mInputs.GivenName(file), ReasonOf(error));
      // Closes what the failure left open.
      mInputs[file].CloseFile();
    }
  }

  // Files that are not like the first are told together.
  void ReportGroups(const Dataset& dataset, const Agreement& agreement) {
    if (agreement.IsReached()) {
      return;
    }
    Disagreement disagreement{dataset.mName, "", OneLine(agreement.Reason())};
    for (const Agreement::Group& group : agreement.Groups()) {
      PlannedValue& value = disagreement.mValues.emplace_back(PlannedValue{group.mValue, {}});
      for (const int file : group.mFiles) {
        value.mFiles.push_back(mInputs.GivenName(file));
      }
    }
    mPlan.mDisagreements.push_back(std::move(disagreement));
  }

  void PlanSteps(SteppedSeries& series) {
    series.Select(mOptions.mNoWipe);
    const SelectedSteps& steps = series.Steps();
    const std::vector<MyVector<double>>& times = series.Times();
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
    auto next = gapFollows.begin();
    for (std::size_t i = 0; i < times.size(); ++i) {
      PlanFile(mSteps.mFiles[i], times[i], steps.mRuns[i], next);
    }
  }

  const JoinOptions& mOptions;
  Plan mPlan;
  std::vector<int> mNumbers;  // of the inputs, among all files of the plan
  Inputs mInputs;             // the files that open
  PlannedSteps mSteps;        // of the dataset that is being planned
  PlanWarnings mWarnings;
};

}  // namespace

std::string PlanWarning::About(std::size_t most) const {
  return ListNames(mDatasets, most);
}

Plan MakePlan(const JoinOptions& options) {
  const Vexa_H5::MuteH5Errors mute;
  return Planner(options).Make();
}
