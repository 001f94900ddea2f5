// Reads and writes values of a table through the library's own filters, whatever the layout.
#pragma once

#include "Utils/Tables/Columns.hpp"
#include "Utils/Tables/Target.hpp"

namespace Tables {

/// Reads at once what is wanted. Chunks have no filters, or were never written and read as the fill
/// value. Fails with "H5Dread failed for name=...".
void ReadByLibrary(const OpenTable& table, Target target);

/// Writes a block whose rows follow one another in memory. Fails with "H5Dwrite failed".
void WriteByLibrary(const OpenTable& table, const ColumnBlock& block, const double* rowMajor);

}  // namespace Tables
