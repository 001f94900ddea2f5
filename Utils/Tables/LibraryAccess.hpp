// Reads and writes values of a table through the library's own filters, whatever the layout.
#pragma once

#include <cstdint>
#include <span>

#include "Utils/Tables/Columns.hpp"
#include "Utils/Tables/Target.hpp"

namespace Tables {

/// Reads at once what is wanted. Chunks have no filters, or were never written and read as the fill
/// value. Fails with "H5Dread failed for name=...".
void ReadByLibrary(const OpenTable& table, Target target);

/// Writes values to the rows of a column from `firstRow` on. Fails with "H5Dwrite failed".
void WriteByLibrary(const OpenTable& table, std::uint64_t column, std::uint64_t firstRow,
                    std::span<const double> values);

/// Writes whole rows, row after row, from `firstRow` on in the same way. For a few rows that is
/// faster than by columns.
void WriteRowsByLibrary(const OpenTable& table, std::uint64_t firstRow,
                        std::span<const double> rowMajor);

}  // namespace Tables
