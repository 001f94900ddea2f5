// What a drawing of a plan shows, whether in pixels or in characters: a panel for all datasets that
// share their steps, in it a row for each file along time, and one for what is joined from them.
#pragma once

#include <string>
#include <vector>

#include "Executables/KelmorInfo/Plan.hpp"
#include "Executables/KelmorInfo/TimeScale.hpp"
#include "Executables/Series/Facts.hpp"

/// What to call the files in at most so many characters: by their names without folders where those
/// differ.
std::vector<std::string> FileLabels(const Plan& plan, std::size_t most);

struct PanelHeading {
  std::vector<std::string> mNames;  // of the datasets; at least one
  bool mAgrees = true;              // in all of them
  std::string mCounts;              // of the steps
};
PanelHeading HeadingOf(const Plan& plan, const PlannedSteps& steps);

/// A file that is joined, or else one that disagrees.
struct PanelRow {
  int mFile;
  const PlannedFile* mpPlanned;
  const PlannedMisfit* mpMisfit;

  std::string CountText() const;
  /// Whether any of it lies on the scale.
  bool IsOn(const TimeScale& scale) const;
};
/// In the order of the files.
std::vector<PanelRow> RowsOf(const PlannedSteps& steps);

struct Bar {
  bool mIsKept;
  double mFrom;  // places on the scale
  double mTo;
};
/// The kept steps and the wiped ones of a file, as far as they are on the scale. Between the two
/// the bars meet half-way: what is between bars is a gap.
std::vector<Bar> BarsOf(const PlannedFile& file, const TimeScale& scale);

/// One bar from each gap to the next, however many files it comes from.
std::vector<Bar> JoinedBarsOf(const PlannedSteps& steps, const TimeScale& scale);

/// The gaps, without what files that disagree would fill.
std::vector<PlanGap> GapsOf(const PlannedSteps& steps);

/// Stretches of time that files with kept steps take, but that are too short on the scale to be
/// seen: to be drawn again, enlarged.
std::vector<TimeRange> ShortStretchesOf(const PlannedSteps& steps, const TimeScale& scale);
