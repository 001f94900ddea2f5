#pragma once

#include <cstdint>

#pragma GCC visibility push(default)

namespace Tables {

/// Rows [mFirst, mOnePastLast) of one table.
struct RowRun {
  std::uint64_t mFirst;
  std::uint64_t mOnePastLast;
  std::uint64_t Size() const { return mOnePastLast - mFirst; }
  friend bool operator==(const RowRun&, const RowRun&) = default;
};

}  // namespace Tables

#pragma GCC visibility pop
