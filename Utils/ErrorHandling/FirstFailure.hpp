// FirstFailure serves work that goes on after a failure, which is reported when the rest is done.
#pragma once

#include <exception>
#include <utility>

/// Takes steps, none of which keeps the next from being taken by failing, and keeps the first
/// exception.
class FirstFailure {
 public:
  /// Returns whether the step succeeded.
  template <class Step>
  bool Try(Step&& step) {
    try {
      std::forward<Step>(step)();
      return true;
    } catch (...) {
      mpFailure = mpFailure == nullptr ? std::current_exception() : mpFailure;
      return false;
    }
  }

  /// Throws the exception that was kept, if there is one, and forgets it.
  void Throw() {
    if (mpFailure != nullptr) {
      std::rethrow_exception(std::exchange(mpFailure, nullptr));
    }
  }

 private:
  std::exception_ptr mpFailure;
};
