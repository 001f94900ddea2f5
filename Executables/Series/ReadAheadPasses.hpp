// The chunks of a table that is too long to be in memory as a whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "Executables/Series/ReadAhead.hpp"
#include "Utils/HDF5/StoredRanges.hpp"

/// Hands them out in the order in which the run needs them: it passes over the files several times,
/// each time for some of the columns.
class ReadAheadPasses {
 public:
  struct Part {
    std::size_t mFile;
    Vexa_H5::ByteRange mBytes;
  };

  /// Adds chunks of a file, in any order. Short ones that touch become one part, but for those of
  /// times, which are read alone as well.
  void Add(std::size_t file, std::deque<Vexa_H5::ByteRange> chunks);
  const std::vector<Part>& Parts() const { return mParts; }
  /// All are added, one at least.
  void Begin();

  /// Whether the run is still in its pass.
  static bool GoesOn(const ReadAhead::Rows& before, const ReadAhead::Rows& now);
  /// The run has come to these rows, in the pass of this number.
  void MoveTo(std::uint64_t pass, const ReadAhead::Rows& rows);
  /// Returns the next chunks of the pass, of about so many bytes; none at its end.
  std::vector<Part> Next(std::uint64_t bytes);
  /// Whether all is handed out that the run will ask for, as columns come in their order.
  bool IsDone() const { return mNext == mParts.size() && mNow.mEndColumn >= mColumns; }

 private:
  bool IsWanted(const Part& part) const;

  std::vector<Part> mParts;
  std::uint64_t mColumns = 0;
  bool mReadsAlong = true;  // chunks of other columns that lie between
  ReadAhead::Rows mNow;
  std::uint64_t mPass = 0;
  std::size_t mNext = 0;  // all parts before it are handed out, or not wanted
};
