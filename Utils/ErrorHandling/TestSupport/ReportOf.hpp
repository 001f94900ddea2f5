// For tests: what a failed REQUIRE reported, and whether that is the report that was expected.
#pragma once

#include <gmock/gmock.h>

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

/// A REQUIRE report of this condition, under this label, whose message begins like this.
inline auto HasReport(const std::string& condition, const std::string& label,
                      const std::string& message) {
  return testing::AllOf(
      testing::HasSubstr("\n#### " + condition + "  violated\n#### " + label + " (line "),
      testing::HasSubstr(")\n" + message));
}
