#include "Executables/KelmorInfo/TimeScale.hpp"

#include <algorithm>
#include <cmath>

#include "Executables/KelmorInfo/Text.hpp"

namespace {

TimeRange FiniteTimes(const Plan& plan) {
  TimeRange all;
  for (const PlannedSteps& steps : plan.mSteps) {
    for (const PlannedFile& file : steps.mFiles) {
      for (const PlanPiece& piece : file.mPieces) {
        for (const double time : {piece.mFirst, piece.mLast}) {
          if (std::isfinite(time)) {
            all.Include(time);
          }
        }
      }
    }
    for (const PlannedMisfit& misfit : steps.mMisfits) {
      if (misfit.mHasTimes) {
        all.Include({misfit.mFirst, misfit.mLast});
      }
    }
  }
  return all;
}

}  // namespace

TimeScale::TimeScale(const Plan& plan, double left, double right)
    : TimeScale(FiniteTimes(plan), left, right) {}

TimeScale::TimeScale(const TimeRange& all, double left, double right) : mLeft(left), mRight(right) {
  const double margin = all.mFirst < all.mLast ? 0 : 0.5;
  mFrom = (all.IsEmpty() ? 0 : all.mFirst) - margin;
  mTo = (all.IsEmpty() ? 0 : all.mLast) + margin;
}

double TimeScale::At(double time) const {
  if (std::isnan(time)) {
    return mLeft;
  }
  // Halved first: the distance of the largest doubles is infinite.
  const double part = (time / 2 - mFrom / 2) / (mTo / 2 - mFrom / 2);
  return mLeft + std::clamp(part, 0.0, 1.0) * (mRight - mLeft);
}

std::vector<TimeScale::Tick> TimeScale::Ticks() const {
  const double aim = (mTo / 8 - mFrom / 8);
  const double power = std::pow(10.0, std::floor(std::log10(aim)));
  const double step = power * (aim / power < 1.5   ? 1
                               : aim / power < 3.5 ? 2
                               : aim / power < 7.5 ? 5
                                                   : 10);
  std::vector<Tick> ticks;
  const double first = std::ceil(mFrom / step);
  for (int i = 0; i < 20 && (first + i) * step <= mTo; ++i) {
    const double time = (first + i) * step;
    ticks.push_back({At(time), Label(time, step)});
  }
  return ticks;
}

// A multiple of `step`, with the digits that tell it from its neighbours.
std::string TimeScale::Label(double time, double step) const {
  const double largest = std::max(std::abs(mFrom), std::abs(mTo));
  const int power = static_cast<int>(std::floor(std::log10(step) + 1e-9));
  if (largest < 1e7 && power >= -4) {
    return ToText(time + 0.0, std::chars_format::fixed, std::max(0, -power));
  }
  const int digits = std::clamp(static_cast<int>(std::log10(largest)) - power + 1, 1, 17);
  return ToText(time + 0.0, std::chars_format::general, digits);
}
