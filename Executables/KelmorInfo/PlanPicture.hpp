// A plan drawn as SVG: a panel for all datasets that share their steps, in it a bar for each file
// along time, and one for what is joined from them.
#pragma once

#include <string>

#include "Executables/KelmorInfo/Plan.hpp"

std::string DrawPlan(const Plan& plan);

/// Writes the picture to a new file; fails if there is one of that name.
void WritePicture(const std::string& path, const std::string& picture);
