// Writes the few rows that a simulation adds to a table between two flushes. For many rows, and for
// what need not be in memory as a whole, there is ColumnWriter.
#pragma once

#include <cstdint>
#include <span>

#include "Utils/Tables/Columns.hpp"

namespace Tables {

/// Writes whole rows, each with a value per column, from row `firstRow` of the table on, which is
/// large enough already. The rows before `firstRow` stay as they are. What it costs grows with the
/// rows and the chunks that they touch, not with the table. Fails with "H5Dwrite failed", and as
/// ReadColumns() does where a chunk goes on that is damaged.
void WriteRows(const OpenTable& table, std::uint64_t firstRow, std::span<const double> rowMajor);

}  // namespace Tables
