// Writes rows of a table, column after column, in a stream that overlaps: while worker threads
// encode chunks and decode the values of the next, the calling thread fetches and writes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <vector>

#include "Utils/ChunkCodec/ChunkEncoder.hpp"
#include "Utils/Process/WorkerPool.hpp"
#include "Utils/Tables/Columns.hpp"
#include "Utils/Tables/PendingReads.hpp"

#pragma GCC visibility push(default)

namespace Tables {

/// Writes the few rows that a simulation adds to a table between two flushes: whole rows, each with
/// a value per column, from row `firstRow` of the table on, which is large enough already. The rows
/// before `firstRow` stay as they are. What it costs grows with the rows and the chunks that they
/// touch, not with the table. Fails with "H5Dwrite failed", and as ReadColumns() does where a chunk
/// goes on that is damaged. ColumnWriter is for many rows, and for what need not be in memory as a
/// whole.
void WriteRows(const OpenTable& table, std::uint64_t firstRow, std::span<const double> rowMajor);

/// Takes all values of the new rows of one column, then those of the next, as one stream in pieces
/// of any size. Chunks that are full go to the file encoded by our codec where it can (see
/// TableLayout), others through the library. The bytes in the file do not depend on the number of
/// threads.
///
/// Holds two buffers of values: each some mebibytes, or one chunk if that is longer (one column, if
/// the rows do not begin where a chunk does); and what those are encoded to. A stream that fits in
/// one buffer needs one.
class ColumnWriter {
 public:
  /// Rows [firstRow, firstRow + rows) of all columns; the table is large enough already.
  ColumnWriter(const OpenTable& table, std::uint64_t firstRow, std::uint64_t rows);

  /// Room for the next `count` values of the stream. Until the next call the caller fills it, or
  /// starts to read into it with these reads, which the writer finishes.
  struct Place {
    double* mpValues;
    PendingReads& mReads;
  };
  Place Room(std::uint64_t count);

  /// Adds these values to the stream.
  void Append(std::span<const double> values);

  /// Values that the stream takes at a time: room for about as many, and for whole columns where
  /// they are short, is best asked for.
  std::uint64_t BlockValues() const { return mBlockValues; }

  /// Whether rows of all columns can be written instead of the stream, as nothing is encoded.
  bool TakesRows() const { return mTable.mLayout.mFilters.empty(); }
  /// Writes some of the new rows of all columns, which are counted from the first new one; column
  /// after column. Chunks that are moved as a whole in the stream are made first, full of zeros, so
  /// that they have their places in the order of the columns.
  void WriteRows(const ColumnBlock& block, const double* values);

  /// Writes the rest; the stream has all values. Fails with "H5Dwrite failed".
  void Finish();

 private:
  // Rows of one column that go out together: a chunk, or those of one that is not full.
  struct Stretch {
    std::uint64_t mColumn;
    std::uint64_t mRow;
    std::uint64_t mRows;
    bool mIsChunk;  // and can be moved past the library
  };
  // Values on their way to the file: a stretch that workers encode, or as many others as follow
  // one another.
  struct Outgoing {
    std::uint64_t mFirst;  // of the stream
    std::span<const double> mValues;
    std::unique_ptr<ChunkCodec::ChunkEncoder> mpEncoder = {};  // null if no worker is to encode
    std::vector<ChunkCodec::ChunkEncoder::Piece> mPieces = {};
    Vexa::TaskGroup mTasks = {};  // last: it waits for tasks that use the others
  };
  struct Buffer {
    std::unique_ptr<double[]> mpValues;  // not a vector, which would fill room with zeros first
    std::uint64_t mCapacity = 0;
    std::uint64_t mSize = 0;
    PendingReads mReads;
    std::deque<Outgoing> mOutgoing;
  };

  void Reserve(Buffer& buffer, std::uint64_t values) const;
  void WriteZeros() const;
  // The stretch that begins there in the stream.
  Stretch StretchAt(std::uint64_t position) const;
  // Writes the buffer that is being written, has the full one encoded, and exchanges the two.
  void ExchangeBuffers();
  // Makes as much of the buffer outgoing as can be; returns how many values that is.
  std::uint64_t Encode(Buffer& buffer);
  void Write(Buffer& buffer) const;
  void Write(Outgoing& outgoing) const;

  OpenTable mTable;
  std::uint64_t mFirstRow;
  std::uint64_t mRows;
  bool mMovesChunks;              // full ones, past the library
  std::uint64_t mLongestStretch;  // rows that go out together
  std::uint64_t mBlockValues;     // a buffer goes out before it holds more
  std::uint64_t mEncoded = 0;     // values of the stream that have been made outgoing
  bool mHasRows = false;          // instead of the stream
  Buffer mBuffers[2];
  Buffer* mpFilling = &mBuffers[0];
  Buffer* mpWriting = &mBuffers[1];
};

}  // namespace Tables

#pragma GCC visibility pop
