// What a join would do without a word, although whoever asked for it may not want it. Warnings are
// made here, from the plan and the series; others print them, draw them, or act on them.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Executables/KelmorInfo/Plan.hpp"
#include "Executables/Series/SteppedSeries.hpp"

class PlanWarnings {
 public:
  /// Both are looked at as long as this lives.
  PlanWarnings(Inputs& inputs, const JoinOptions& options) : mInputs(inputs), mOptions(options) {}

  /// Looks at a dataset whose files were taken in. If it has steps, they were selected, and `steps`
  /// is what is planned of them.
  void LookAt(const Dataset& dataset, const Series& series, const PlannedSteps& steps);
  /// Looks at groups, which are no datasets.
  void LookAtGroups();
  /// Returns the warnings; those for which a scheduled join is refused come first.
  std::vector<PlanWarning> Finish();

 private:
  // What is said of some of the input files.
  struct Value {
    std::string mText;
    std::vector<int> mFiles;
  };
  struct KeptSteps;

  void LookAtTimes(const std::string& name, const SteppedSeries& series);
  void LookAtLosses(const std::string& name, const SteppedSeries& series, const KeptSteps& kept);
  void LookAtGaps(const std::string& name, const std::vector<PlanGap>& gaps, const KeptSteps& kept);
  void LookAtLegends(const std::string& name, const Agreement& legends);
  void LookForMissing(const Dataset& dataset);
  void WarnOfForeignParts(const std::string& name, const Series::Parts& parts);
  std::vector<Value> ProperOrder() const;
  // Where the same was said of the same files in another dataset, adds the dataset to that. With
  // `valuesMatter` it is not the same if the values differ.
  void Warn(const char* kind, const char* text, const std::string& dataset,
            const std::vector<Value>& values, bool valuesMatter = false);

  Inputs& mInputs;
  const JoinOptions& mOptions;
  std::vector<PlanWarning> mWarnings;
  std::map<std::string, std::size_t> mNumbers;  // of the warnings, by what makes two the same
  std::map<int, TimeRange> mRanges;             // of the times of each file
  std::vector<std::string> mMisordered;         // datasets
  std::optional<std::pair<int, int>> mEarlier;  // a file that belongs before the other
};
