// A guard for arithmetic on numbers that a user typed.
#pragma once

#include <cfenv>

/// While it lives, overflow and division by zero give inf and nan and no signal, even where the
/// process has switched floating-point traps on. Results are checked afterwards, and a report says
/// more than a signal. Restores what was before and forgets the exceptions of the time between.
class QuietFloatingPoint {
 public:
  QuietFloatingPoint() { std::feholdexcept(&mEnvironment); }
  ~QuietFloatingPoint() { std::fesetenv(&mEnvironment); }
  QuietFloatingPoint(const QuietFloatingPoint&) = delete;
  QuietFloatingPoint& operator=(const QuietFloatingPoint&) = delete;

 private:
  std::fenv_t mEnvironment{};
};
