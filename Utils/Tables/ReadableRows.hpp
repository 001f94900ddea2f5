#pragma once

#include <cstdint>
#include <string>

#include "Utils/Tables/Columns.hpp"

#pragma GCC visibility push(default)

namespace Tables {

/// Counts the rows of the first columns of a table that come before the first of which a value
/// cannot be read, or was never written, as in a file whose writer was killed. Rows of zeros at the
/// end count as never written, but for the first row, and where there is but one column. Reads all
/// values, some mebibytes or one chunk at a time. Why there are not more of them goes to `reason`.
std::uint64_t CountReadableRows(const OpenTable& table, std::uint64_t columns, std::string& reason);

}  // namespace Tables

#pragma GCC visibility pop
