// Rows of tables compared bit for bit, some mebibytes at a time.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Executables/Series/SelectTimeSteps.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"

/// A block of a joined table in memory, column after column.
struct JoinedBlock {
  Tables::ColumnBlock mWhere;
  const double* mValues;
};

/// The blocks in which a joined table is compared: of whole chunks, and of some mebibytes unless a
/// chunk is longer.
std::vector<Tables::ColumnBlock> BlocksOf(const Tables::TableLayout& layout);

/// Rows of an input, and where they stand in the joined table.
struct JoinedPart {
  std::uint64_t mRow;
  std::uint64_t mJoinedRow;
  std::uint64_t mRows;
};

/// Those of an input's kept rows that stand in the block. The first of all kept rows of the input
/// stands at `position`, which is moved behind the last.
std::vector<JoinedPart> PartsWithin(const std::vector<StepRun>& kept,
                                    const Tables::ColumnBlock& block, std::uint64_t& position);

struct RowDifference {
  std::uint64_t mColumn;
  std::uint64_t mRow;
  std::uint64_t mJoinedRow;
  double mValue;
  double mJoinedValue;
};

/// The first difference, if there is one. The input's table is open; each of its chunks is read
/// once, however many parts lie in it.
std::optional<RowDifference> CompareParts(const H5_Objects::Dat& input,
                                          const std::vector<JoinedPart>& parts,
                                          const JoinedBlock& joined);

bool AreSameBits(const double* a, const double* b, std::uint64_t count);
