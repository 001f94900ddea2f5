// For tests: what a failed REQUIRE reported.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "Utils/ErrorHandling/CodeError.hpp"

/// The text of the CodeError that the action throws; fails the test if it throws none.
template <class Action>
std::string ReportOf(Action&& action) {
  try {
    std::forward<Action>(action)();
  } catch (const CodeError& error) {
    return error.Message();
  }
  ADD_FAILURE() << "nothing was reported";
  return "";
}
