#include "Executables/KelmorInfo/PlanPanels.hpp"

#include <algorithm>
#include <cmath>
#include <set>

#include "Executables/KelmorInfo/Text.hpp"
#include "Utils/StringParsing/PathUtilities.hpp"

namespace {

bool HasPlace(const PlanPiece& piece) {
  return !std::isnan(piece.mFirst) && !std::isnan(piece.mLast);
}

// Steps may go backwards in time.
TimeRange RangeOf(const PlanPiece& piece) {
  return {std::min(piece.mFirst, piece.mLast), std::max(piece.mFirst, piece.mLast)};
}

}  // namespace

std::vector<std::string> FileLabels(const Plan& plan, std::size_t most) {
  std::vector<std::string> paths;
  std::vector<std::string> names;
  for (const InputFile& file : plan.mFiles) {
    paths.push_back(Vexa::Printable(file.mName));
    names.push_back(GetFilenameFromPath(paths.back()));
  }
  const bool differ = std::set(names.begin(), names.end()).size() == names.size();
  return ShortenedAlike(differ ? names : paths, most);
}

PanelHeading HeadingOf(const Plan& plan, const PlannedSteps& steps) {
  PanelHeading heading;
  for (const PlannedDataset& dataset : plan.mDatasets) {
    if (&plan.StepsOf(dataset) == &steps) {
      heading.mNames.push_back(dataset.mName);
      heading.mAgrees = heading.mAgrees && dataset.mAgrees;
    }
  }
  std::uint64_t timeless = 0;
  for (const PlannedFile& file : steps.mFiles) {
    timeless += file.mTimeless;
  }
  heading.mCounts = std::to_string(steps.mKept) + " of " + Counted(steps.mTotal, "step") + " kept" +
                    (timeless == 0 ? "" : ", " + std::to_string(timeless) + " without a time");
  return heading;
}

std::string PanelRow::CountText() const {
  return mpPlanned != nullptr  ? mpPlanned->CountText()
         : mpMisfit->mHasTimes ? "disagrees"
                               : "unreadable";
}

bool PanelRow::IsOn(const TimeScale& scale) const {
  if (mpPlanned == nullptr) {
    return mpMisfit->mHasTimes && scale.Shows(mpMisfit->mFirst, mpMisfit->mLast);
  }
  return !BarsOf(*mpPlanned, scale).empty();
}

std::vector<PanelRow> RowsOf(const PlannedSteps& steps) {
  std::vector<PanelRow> rows;
  for (const PlannedFile& file : steps.mFiles) {
    rows.push_back({file.mFile, &file, nullptr});
  }
  for (const PlannedMisfit& misfit : steps.mMisfits) {
    rows.push_back({misfit.mFile, nullptr, &misfit});
  }
  std::ranges::sort(rows, {}, &PanelRow::mFile);
  return rows;
}

std::vector<Bar> BarsOf(const PlannedFile& file, const TimeScale& scale) {
  std::vector<Bar> all;
  for (std::size_t i = 0; i < file.mPieces.size(); ++i) {
    const PlanPiece& piece = file.mPieces[i];
    all.push_back({piece.mIsKept, scale.At(piece.mFirst), scale.At(piece.mLast)});
    // Halfway to a time that is infinite would be anywhere.
    if (i > 0 && piece.mIsKept != file.mPieces[i - 1].mIsKept && std::isfinite(piece.mFirst) &&
        std::isfinite(file.mPieces[i - 1].mLast)) {
      all[i].mFrom = all[i - 1].mTo = (all[i].mFrom + all[i - 1].mTo) / 2;
    }
  }
  std::vector<Bar> bars;
  for (std::size_t i = 0; i < all.size(); ++i) {
    const TimeRange range = RangeOf(file.mPieces[i]);
    if (HasPlace(file.mPieces[i]) && scale.Shows(range.mFirst, range.mLast)) {
      const auto [from, to] = std::minmax({all[i].mFrom, all[i].mTo});
      bars.push_back({all[i].mIsKept, from, to});
    }
  }
  return bars;
}

std::vector<Bar> JoinedBarsOf(const PlannedSteps& steps, const TimeScale& scale) {
  std::vector<TimeRange> wholes;
  std::size_t gap = 0;
  for (const PlannedFile& file : steps.mFiles) {
    for (const PlanPiece& piece : file.mPieces) {
      if (!piece.mIsKept || !HasPlace(piece)) {
        continue;
      }
      bool isNew = wholes.empty();
      for (; gap < steps.mGaps.size() && piece.mFirst >= steps.mGaps[gap].mTo; ++gap) {
        isNew = true;
      }
      if (isNew) {
        wholes.emplace_back();
      }
      wholes.back().Include(RangeOf(piece));
    }
  }
  std::vector<Bar> bars;
  for (const TimeRange& whole : wholes) {
    if (scale.Shows(whole.mFirst, whole.mLast)) {
      bars.push_back({true, scale.At(whole.mFirst), scale.At(whole.mLast)});
    }
  }
  return bars;
}

std::vector<PlanGap> GapsOf(const PlannedSteps& steps) {
  std::vector<PlanGap> gaps = steps.mGaps;
  for (const PlannedMisfit& misfit : steps.mMisfits) {
    std::vector<PlanGap> left;
    for (const PlanGap& gap : gaps) {
      if (!misfit.mHasTimes || misfit.mLast <= gap.mFrom || misfit.mFirst >= gap.mTo) {
        left.push_back(gap);
        continue;
      }
      // The distance to the next step is not worth a mention.
      const double least = (gap.mTo - gap.mFrom) / 4;
      if (misfit.mFirst - gap.mFrom > least) {
        left.push_back({gap.mFrom, misfit.mFirst});
      }
      if (gap.mTo - misfit.mLast > least) {
        left.push_back({misfit.mLast, gap.mTo});
      }
    }
    gaps = std::move(left);
  }
  return gaps;
}

std::vector<TimeRange> ShortStretchesOf(const PlannedSteps& steps, const TimeScale& scale) {
  constexpr double tooShort = 1.0 / 400;  // of the width: two pixels of a picture
  constexpr double largest = 1.0 / 20;    // which enlarging would help little
  std::vector<TimeRange> ranges;
  for (const PlannedFile& file : steps.mFiles) {
    TimeRange kept;
    for (const PlanPiece& piece : file.mPieces) {
      const TimeRange range = RangeOf(piece);
      if (piece.mIsKept && std::isfinite(range.mFirst) && std::isfinite(range.mLast)) {
        kept.Include(range);
      }
    }
    if (kept.mFirst < kept.mLast && scale.PartOf(kept.mFirst, kept.mLast) < tooShort) {
      ranges.push_back(kept);
    }
  }
  std::ranges::sort(ranges, {}, &TimeRange::mFirst);
  std::vector<TimeRange> stretches;
  for (const TimeRange& range : ranges) {
    // What lies close together is enlarged together.
    const auto reach = [](const TimeRange& r) { return r.mLast + 4 * (r.mLast - r.mFirst); };
    if (!stretches.empty() && range.mFirst <= reach(stretches.back())) {
      stretches.back().Include(range);
    } else {
      stretches.push_back(range);
    }
  }
  std::erase_if(stretches,
                [&](const TimeRange& r) { return scale.PartOf(r.mFirst, r.mLast) > largest; });
  for (TimeRange& stretch : stretches) {
    const double margin = (stretch.mLast - stretch.mFirst) / 4;
    stretch = {stretch.mFirst - margin, stretch.mLast + margin};
  }
  return stretches;
}
