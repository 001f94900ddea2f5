#include "Executables/KelmorInfo/PlanWarnings.hpp"

#include <algorithm>
#include <cmath>
#include <set>
#include <span>

#include "Executables/KelmorInfo/Text.hpp"
#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/Store/H5_ObjectDir.hpp"

using Times = MyVector<double>;

namespace {

// Those for which kelmor-run refuses a join come first.
constexpr const char* sKindsInOrder[] = {"time",  "nan", "order",   "legend",
                                         "wiped", "gap", "missing", "dropped"};

// The median of the distances between steps that follow each other; 0 if there are none.
double UsualStep(std::span<const double> times) {
  std::vector<double> distances;
  for (std::size_t i = 0; i + 1 < times.size(); ++i) {
    if (const double distance = times[i + 1] - times[i]; distance > 0 && std::isfinite(distance)) {
      distances.push_back(distance);
    }
  }
  if (distances.empty()) {
    return 0;
  }
  const auto middle = distances.begin() + static_cast<std::ptrdiff_t>(distances.size() / 2);
  std::ranges::nth_element(distances, middle);
  return *middle;
}

TimeRange RangeOf(const Times& times) {
  TimeRange range;
  for (const double time : times) {
    if (std::isfinite(time)) {
      range.Include(time);
    }
  }
  return range;
}

std::string RangeText(const TimeRange& range) {
  return range.IsEmpty() ? "no times" : TimeSpan(range.mFirst, range.mLast);
}

// Calls `visit` with each step that is not kept.
template <class Visit>
void VisitWiped(const SteppedSeries& series, std::size_t i, const Visit& visit) {
  std::uint64_t next = 0;
  const auto upTo = [&](std::uint64_t end) {
    for (; next < end; ++next) {
      visit(series.Times()[i][next]);
    }
  };
  for (const StepRun& run : series.Steps().mRuns[i]) {
    upTo(run.mFirst);
    next = run.mOnePastLast;
  }
  upTo(series.Times()[i].size());
}

std::string StepsText(std::uint64_t steps, const TimeRange& range) {
  return Counted(steps, "step") + (range.IsEmpty() ? "" : " at " + RangeText(range));
}

// Says which times are no numbers; empty if all are.
std::string OddTimes(const Times& times) {
  std::string first;
  std::uint64_t count = 0;
  for (std::size_t i = 0; i < times.size(); ++i) {
    if (!std::isfinite(times[i]) && count++ == 0) {
      first = "the first is step " + std::to_string(i) + " (" + RoundTrip(times[i]) + ")";
    }
  }
  return count == 0 ? ""
                    : std::to_string(count) + " of " + Counted(times.size(), "step") + ", " + first;
}

// Says where times go backwards; empty if they do not.
std::string BackwardTimes(const Times& times) {
  std::string first;
  std::uint64_t count = 0;
  for (std::size_t i = 0; i + 1 < times.size(); ++i) {
    if (times[i + 1] < times[i] && count++ == 0) {
      first = "step " + std::to_string(i + 1) + " (t = " + RoundTrip(times[i + 1]) +
              ") follows t = " + RoundTrip(times[i]);
    }
  }
  return count < 2 ? first : first + ", and " + Counted(count - 1, "more such step");
}

}  // namespace

// The kept steps of all files, without those whose times are no numbers; unless nothing was to be
// wiped, they ascend.
struct PlanWarnings::KeptSteps {
  explicit KeptSteps(const SteppedSeries& series) : mSeries(series) {
    for (std::size_t i = 0; i < series.Times().size(); ++i) {
      mUsual.push_back(UsualStep(series.Times()[i]));
      for (const StepRun& run : series.Steps().mRuns[i]) {
        for (std::uint64_t step = run.mFirst; step < run.mOnePastLast; ++step) {
          if (const double time = series.Times()[i][step]; !std::isnan(time)) {
            mTimes.push_back(time);
          }
        }
      }
      mEnds.push_back(mTimes.size());
    }
  }

  // Whether a time lies no further from a kept step than the steps of the two files, or of the
  // join, lie from each other.
  bool Reach(double time, std::size_t file, double deltaT) const {
    const auto next =
        static_cast<std::size_t>(std::ranges::lower_bound(mTimes, time) - mTimes.begin());
    const auto isNear = [&](std::size_t kept) {
      const double usual = std::max({mUsual[Owner(kept)], mUsual[file], deltaT});
      // Times such as 0.1, 0.2, 0.3 are not quite equally far apart.
      return std::abs(mTimes[kept] - time) <= usual * 1.000001;
    };
    return (next < mTimes.size() && isNear(next)) || (next > 0 && isNear(next - 1));
  }

  // Which of the series' files has the step.
  std::size_t Owner(std::size_t kept) const {
    return static_cast<std::size_t>(std::ranges::upper_bound(mEnds, kept) - mEnds.begin());
  }

  TimeRange Range() const {
    return mTimes.empty() ? TimeRange() : TimeRange{mTimes.front(), mTimes.back()};
  }

  const SteppedSeries& mSeries;
  std::vector<double> mTimes;
  std::vector<std::size_t> mEnds;  // among the times, of each file
  std::vector<double> mUsual;      // distance of the steps of each file
};

void PlanWarnings::Warn(const char* kind, const char* text, const std::string& dataset,
                        const std::vector<Value>& values, bool valuesMatter) {
  if (values.empty()) {
    return;
  }
  std::vector<int> files;
  std::string key = text;
  for (const Value& value : values) {
    key += valuesMatter ? '\n' + value.mText : "";
    for (const int file : value.mFiles) {
      key += ' ' + std::to_string(file);
      files.push_back(file);
    }
  }
  const auto [found, isNew] = mNumbers.emplace(key, mWarnings.size());
  if (!isNew) {
    mWarnings[found->second].mDatasets.push_back(dataset);
    return;
  }
  PlanWarning& warning = mWarnings.emplace_back(PlanWarning{kind, text, {}, {dataset}, {}});
  std::set<int> named;
  for (const int file : files) {
    if (named.insert(file).second) {
      warning.mFiles.push_back(mInputs.GivenName(file));
    }
  }
  for (const Value& value : values) {
    PlannedValue& planned = warning.mValues.emplace_back(PlannedValue{value.mText, {}});
    for (const int file : value.mFiles) {
      planned.mFiles.push_back(mInputs.GivenName(file));
    }
  }
}

void PlanWarnings::LookAt(const Dataset& dataset, const Series& series, const PlannedSteps& steps) {
  if (const auto* stepped = dynamic_cast<const SteppedSeries*>(&series)) {
    LookAtTimes(dataset.mName, *stepped);
    if (steps.mKept < steps.mTotal || !steps.mGaps.empty()) {
      const KeptSteps kept(*stepped);
      LookAtLosses(dataset.mName, *stepped, kept);
      LookAtGaps(dataset.mName, steps.mGaps, kept);
    }
  }
  LookAtLegends(dataset.mName, series.Legends());
  LookForMissing(dataset);
  WarnOfForeignParts(dataset.mName, series.ForeignParts());
}

void PlanWarnings::LookAtTimes(const std::string& name, const SteppedSeries& series) {
  std::vector<Value> odd;
  std::vector<Value> backwards;
  TimeRange before;
  int fileBefore = -1;
  bool isMisordered = false;
  for (std::size_t i = 0; i < series.Times().size(); ++i) {
    const int file = series.FileOf(i);
    if (const std::string text = OddTimes(series.Times()[i]); !text.empty()) {
      odd.push_back({text, {file}});
    }
    if (const std::string text = BackwardTimes(series.Times()[i]); !text.empty()) {
      backwards.push_back({text, {file}});
    }
    const TimeRange range = RangeOf(series.Times()[i]);
    if (range.IsEmpty()) {
      continue;
    }
    mRanges[file].Include(range);
    // A file that begins earlier than the one before it, but ends later, was started again from
    // an older checkpoint.
    if (fileBefore >= 0 && range.mFirst < before.mFirst && range.mLast < before.mLast) {
      mEarlier = mEarlier.value_or(std::pair(file, fileBefore));
      isMisordered = true;
    }
    before = range;
    fileBefore = file;
  }
  Warn("nan", "Times in these files are no numbers", name, odd);
  Warn("order", "Steps within these files go backwards in time", name, backwards);
  if (isMisordered) {
    mMisordered.push_back(name);
  }
}

void PlanWarnings::LookAtLosses(const std::string& name, const SteppedSeries& series,
                                const KeptSteps& kept) {
  std::vector<Value> lost;
  std::vector<Value> wiped;
  for (std::size_t i = 0; i < series.Times().size(); ++i) {
    const int file = series.FileOf(i);
    const Times& times = series.Times()[i];
    TimeRange range;
    std::uint64_t steps = 0;
    VisitWiped(series, i, [&](double time) {
      if (std::isfinite(time) && !kept.Reach(time, i, mOptions.mDeltaT)) {
        range.Include(time);
        ++steps;
      }
    });
    if (steps > 0) {
      lost.push_back(
          {StepsText(steps, range) + " (the joined series has " + RangeText(kept.Range()) + ")",
           {file}});
    }
    if (series.Steps().mRuns[i].empty() && times.size() > 0) {
      wiped.push_back({StepsText(times.size(), RangeOf(times)), {file}});
    }
  }
  Warn("time", "These files have steps at times that the joined series does not reach", name, lost);
  Warn("wiped", "No step of these files is kept", name, wiped);
}

void PlanWarnings::LookAtGaps(const std::string& name, const std::vector<PlanGap>& gaps,
                              const KeptSteps& kept) {
  const double usual = UsualStep(kept.mTimes);
  std::vector<Value> values;
  std::size_t step = 0;
  for (const PlanGap& gap : gaps) {
    // Gaps come in the order of the steps.
    while (kept.mTimes[step] != gap.mFrom || kept.mTimes[step + 1] != gap.mTo) {
      ++step;
    }
    const double size = gap.mTo - gap.mFrom;
    if (size > 4 * usual) {
      const int from = kept.mSeries.FileOf(kept.Owner(step));
      const int to = kept.mSeries.FileOf(kept.Owner(step + 1));
      values.push_back({RoundTrip(size) + " between t = " + RoundTrip(gap.mFrom) + " and " +
                            RoundTrip(gap.mTo) + ", usually " + RoundTrip(usual),
                        from == to ? std::vector<int>{from} : std::vector<int>{from, to}});
    }
    ++step;
  }
  Warn("gap", "Kept steps lie much further apart than is usual in the series", name, values);
}

void PlanWarnings::LookAtLegends(const std::string& name, const Agreement& legends) {
  std::vector<Value> values;
  for (const Agreement::Group& group : legends.Groups()) {
    values.push_back({group.mValue, group.mFiles});
  }
  if (!legends.IsReached()) {
    Warn("legend",
         "Columns have other names in some files; the joined series has those of the first", name,
         values);
  }
}

void PlanWarnings::LookForMissing(const Dataset& dataset) {
  std::vector<int> missing;
  for (std::size_t i = 0; i + 1 < dataset.mFiles.size(); ++i) {
    for (int file = dataset.mFiles[i] + 1; file < dataset.mFiles[i + 1]; ++file) {
      missing.push_back(file);
    }
  }
  if (!missing.empty()) {
    Warn("missing", "The dataset is missing in files between others that have it", dataset.mName,
         {{"missing", missing}});
  }
}

void PlanWarnings::WarnOfForeignParts(const std::string& name, const Series::Parts& parts) {
  std::vector<Value> values;
  for (const auto& [part, files] : parts) {
    values.push_back({part, files});
  }
  Warn("dropped", "A join does not carry these over", name, values, true);
}

void PlanWarnings::LookAtGroups() {
  using H5_Objects::Dir;
  std::map<std::string, Series::Parts> found;
  for (int file = 0; file < mInputs.Size(); ++file) {
    const std::vector<std::string>& groups = mInputs[file].GroupsWithAttributes();
    if (groups.empty()) {
      continue;
    }
    std::string group = groups.front();
    try {
      // One visit for all of them, since each may open the file.
      mInputs.Visit<Dir>(file, group, [&](const Dir& /*first*/) {
        for (const std::string& name : groups) {
          group = name;
          for (const std::string& part : mInputs[file].GetObjectForRead<Dir>(name).ForeignParts()) {
            found[name][part].push_back(file);
          }
        }
      });
    } catch (const CodeError&) {
      found[group]["attributes that cannot be listed"].push_back(file);
      mInputs[file].CloseFile();
    }
  }
  for (const auto& [name, parts] : found) {
    WarnOfForeignParts(name, parts);
  }
}

// Which file stands too late, and the files in the order of their first times, unless that is the
// order that they have.
std::vector<PlanWarnings::Value> PlanWarnings::ProperOrder() const {
  const auto& [tooLate, fileBefore] = mEarlier.value();
  std::vector<Value> values = {{mInputs.GivenName(tooLate) + " begins and ends before " +
                                    mInputs.GivenName(fileBefore) + ", but comes after it",
                                {}}};
  std::vector<std::pair<int, TimeRange>> order(mRanges.begin(), mRanges.end());
  std::ranges::stable_sort(order, {}, [](const auto& file) { return file.second.mFirst; });
  if (!std::ranges::is_sorted(order, {}, [](const auto& file) { return file.first; })) {
    for (const auto& [file, range] : order) {
      values.push_back({RangeText(range), {file}});
    }
  }
  return values;
}

std::vector<PlanWarning> PlanWarnings::Finish() {
  for (const std::string& name : mMisordered) {
    Warn("order", "The files are not in the order of their times, in which they are listed here",
         name, ProperOrder());
  }
  std::ranges::stable_sort(mWarnings, {}, [](const PlanWarning& warning) {
    return std::ranges::find(sKindsInOrder, warning.mKind) - std::begin(sKindsInOrder);
  });
  return std::move(mWarnings);
}
