// A plan as text and as JSON.
#pragma once

#include <iosfwd>

#include "Executables/KelmorInfo/Plan.hpp"

/// Prints warnings, what disagrees, and what a join would make in all; returns whether there is
/// more to tell.
bool PrintPlanHead(std::ostream& os, const Plan& plan, bool verbose);

/// Prints the plan as text; many time ranges that are wiped are all named only if `verbose`.
void PrintPlan(std::ostream& os, const Plan& plan, bool verbose);
void PrintPlanAsJson(std::ostream& os, const Plan& plan);
