// The filters that the chunks of a dataset pass when they are written.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

namespace ChunkCodec {

/// The numbers that HDF5's file format gives to the filters that the codec knows.
inline constexpr int sDeflate = 1;
inline constexpr int sShuffle = 2;
inline constexpr int sFletcher32 = 3;

/// One filter of a dataset, as its file describes it.
struct Filter {
  int mNumber = 0;
  std::size_t mParameters = 0;  // how many there are
  unsigned mParameter = 0;  // the first: of shuffle the bytes of an element, of deflate the level
  std::string mName = {};   // what its maker calls it

  /// Whether HDF5 undoes this filter with such parameters.
  bool HasItsParameters() const;

  friend bool operator==(const Filter&, const Filter&) = default;
};

/// The filters of a dataset. A chunk passes them in this order when it is written, and in the
/// opposite order when it is read.
using Filters = std::vector<Filter>;

bool Has(const Filters& filters, int number);

/// The filters that the encoder applies to chunks of native doubles: each of these three or not, in
/// this order.
Filters FiltersOfDoubles(bool shuffle, bool deflate, bool fletcher32);

/// Whether the encoder can apply these filters: whether they are some of the three, in their order.
bool CanEncode(const Filters& filters);

}  // namespace ChunkCodec

#pragma GCC visibility pop
