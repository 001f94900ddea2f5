// A small file that reads like the join of some files and refers to them: tables and the values of
// sets are virtual datasets, which map runs of kept rows to the files. What is small, or stands in
// no file as it is in the join, is stored: indices, texts, version records, legends.
#pragma once

#include <cstdint>
#include <string>

#include "Executables/Series/JoinOptions.hpp"

struct ViewResult {
  std::uint64_t mDatasets = 0;
  std::uint64_t mBytes = 0;  // of all that is kept, uncompressed
};

/// Makes the view, whole or not at all. Fails where the join itself would fail, but for damage of
/// values, which are not read; and if there is nothing to refer to.
ViewResult MakeView(const std::string& name, const JoinOptions& options);

/// The path that a file's name in a view stands for.
std::string PathFromView(const std::string& viewPath, const std::string& name);
