// Where in its file an object lies, found out without the library, so that any thread can.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <vector>

#include "Utils/HDF5/HeaderMessages.hpp"

namespace Vexa_H5 {

/// The bytes [mBegin, mEnd) of a file.
struct ByteRange {
  std::uint64_t mBegin;
  std::uint64_t mEnd;
  // Of a chunk of a table, its first row and its columns; the tables of a group are counted.
  std::uint64_t mRow = 0;
  std::uint32_t mFirstColumn = 0;
  std::uint32_t mEndColumn = std::numeric_limits<std::uint32_t>::max();
  std::uint32_t mTable = 0;
};

/// Reads some bytes of a file, or as many of them as it has.
using ReadBytes = HeaderMessages::Read;

/// Whether StoredRanges() can tell anything of the file.
bool HasKnownAddresses(const ReadBytes& read);

/// The values that are looked for: all, or only the first column of each table of several, which is
/// where times are.
enum class WantedValues { All, Times };

/// Returns, in no order, where the values of the object at this address are and the strings of its
/// attributes; of a group, those of its members. Headers and indices are read for that, and are not
/// told. What it does not understand is left out: newer indices than the tree of version 1, large
/// groups. So is what is damaged, and whatever it says, no more is read than the file has bytes.
/// Ends when about `most` places are found.
std::deque<ByteRange> StoredRanges(std::uint64_t address, std::uint64_t fileSize,
                                   const ReadBytes& read, WantedValues wanted, std::size_t most);

}  // namespace Vexa_H5
