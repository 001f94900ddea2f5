// The one way to fail: REQUIRE(condition, message) checks a precondition or the answer of a library
// call where a wrong value first shows, and ends in a framed report that names the condition as it
// stands in the source, the source file and the line.
#pragma once

#include "Utils/ErrorHandling/RequireFail.hpp"

#pragma GCC visibility push(default)

/// Fails unless `condition` holds. `message` may chain << items and is built only on failure; see
/// RequireMessage for how they appear.
#define REQUIRE(condition, message) \
  VEXA_REQUIRE_AS(VEXA_CURRENT_REPORT_LABEL, #condition, condition, message)

/// Does the same under an explicit label, for the few reports whose label is not their source file.
#define REQUIRE_LABELLED(label, condition, message) \
  VEXA_REQUIRE_AS(label, #condition, condition, message)

/// Serves helpers that several sources share: the report names the caller, by the innermost
/// ReportAs.
#define REQUIRE_FOR_CALLER(condition, message) \
  VEXA_REQUIRE_AS(VEXA_CALLERS_REPORT_LABEL, #condition, condition, message)

#pragma GCC visibility pop
