// The files to which a view refers, which may be gone.
#pragma once

#include <string>
#include <vector>

#include "Executables/KelmorInfo/InputFiles.hpp"
#include "Executables/Series/Facts.hpp"

/// Tries the files to which the datasets of a view refer, and adds the times of its tables as far
/// as those files can be read; says of each that cannot why. Of any other file, there are none.
/// None of them may be open.
std::vector<InputFile> ReadSegments(const std::string& view, std::vector<Facts>& datasets);
