// OnFailure serves what must be undone where an exception passes. A guard, unlike a catch, leaves
// the stack as it is when nobody catches the exception, so that the terminate handler still knows
// what was being worked on.
#pragma once

#include <exception>
#include <utility>

/// Calls an action, which does not throw, when it is destroyed by an exception on its way.
template <class Action>
class OnFailure {
 public:
  explicit OnFailure(Action action) : mAction(std::move(action)) {}
  OnFailure(const OnFailure&) = delete;
  OnFailure& operator=(const OnFailure&) = delete;
  ~OnFailure() {
    if (std::uncaught_exceptions() > mExceptions) {
      mAction();
    }
  }

 private:
  Action mAction;
  int mExceptions = std::uncaught_exceptions();
};
