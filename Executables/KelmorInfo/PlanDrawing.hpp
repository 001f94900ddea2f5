// A plan drawn with block characters, for a terminal.
#pragma once

#include <cstddef>
#include <iosfwd>

#include "Executables/KelmorInfo/Plan.hpp"

/// Draws a panel for all datasets that share their steps, in lines of so many characters. There are
/// at least 40.
void DrawInText(std::ostream& os, const Plan& plan, std::size_t width);

/// How many characters a line of standard output has: COLUMNS of the environment, or as many as the
/// terminal says; 80 if neither is known.
std::size_t OutputWidth();
