// Rows of a series in memory, one piece after the other.
#pragma once

#include <cstdint>
#include <memory>

#include "Utils/Tables/ColumnWriter.hpp"
#include "Utils/Tables/Columns.hpp"
#include "Utils/Tables/PendingReads.hpp"

/// Rows of some columns of a series in memory, and the reads that bring them there.
struct PieceOfRows {
  Tables::ColumnBlock mWhere = {};
  std::unique_ptr<double[]> mValues;
  Tables::PendingReads mReads;

  Tables::ColumnWriter::Place Room(const Tables::ColumnBlock& where) {
    mWhere = where;
    mValues.reset();
    mValues = std::make_unique_for_overwrite<double[]>(where.mColumns * where.mRows);
    return {mValues.get(), mReads};
  }
  const double* At(std::uint64_t column, std::uint64_t row) const {
    return mValues.get() + (column - mWhere.mFirstColumn) * mWhere.mRows + (row - mWhere.mFirstRow);
  }
};

/// Lets `read` ask for room for one piece after the other (see SteppedSeries::Room), and hands each
/// to `use` when its values are there.
template <class Read, class Use>
void ForEachPiece(const Read& read, const Use& use) {
  PieceOfRows rows;
  const auto finish = [&] {
    rows.mReads.Finish();
    if (rows.mValues != nullptr) {
      use(rows);
    }
  };
  read([&](const Tables::ColumnBlock& piece) {
    finish();
    return rows.Room(piece);
  });
  finish();
}
