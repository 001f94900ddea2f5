// The axis of a picture of a plan: times, and where they lie from left to right.
#pragma once

#include <string>
#include <vector>

#include "Executables/KelmorInfo/Plan.hpp"
#include "Executables/Series/Facts.hpp"

class TimeScale {
 public:
  /// From the first to the last finite time of the plan, between these two places.
  TimeScale(const Plan& plan, double left, double right);
  /// Between two finite times.
  TimeScale(const TimeRange& times, double left, double right);

  /// Whether any of the time from one to the other is shown.
  bool Shows(double from, double to) const { return from <= mTo && to >= mFrom; }
  /// The part of the width that the time from one to the other takes.
  double PartOf(double from, double to) const { return (At(to) - At(from)) / (mRight - mLeft); }

  /// Where the time lies; at an end if it is beyond it, at the left if it is NaN.
  double At(double time) const;

  struct Tick {
    double mX;
    std::string mLabel;
  };
  /// At round times, about eight of them.
  std::vector<Tick> Ticks() const;

 private:
  std::string Label(double time, double step) const;

  double mLeft;
  double mRight;
  double mFrom;
  double mTo;
};
