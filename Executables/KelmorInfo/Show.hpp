// Prints what a dataset holds, in one file or in several as if they were joined: rows as they are
// read, a few blocks of them in memory at a time.
#pragma once

#include <iosfwd>

#include "Executables/KelmorInfo/ShowOptions.hpp"
#include "Executables/Series/JoinOptions.hpp"

/// Fails where the join itself would fail, where a file does not open or has changed in the end,
/// and if there is no such dataset, column or step; and on values that cannot be read, when the
/// rows before them may have been printed. Besides texts and the steps' times and offsets, some
/// mebibytes of values are in memory at a time; where chunks are longer, up to a quarter of one of
/// each column, as far as the cache size allows, and some chunks.
void Show(std::ostream& os, const ShowOptions& options, const JoinOptions& join);
