#include "Utils/ChunkCodec/Filters.hpp"

#include <algorithm>

namespace ChunkCodec {

bool Filter::HasItsParameters() const {
  const unsigned highestLevel = 9;
  switch (mNumber) {
    case sShuffle:
      return mParameters == 1 && mParameter > 0;
    case sDeflate:
      return mParameters == 1 && mParameter <= highestLevel;
    default:  // the checksum has none, and HDF5 looks at none
      return true;
  }
}

bool Has(const Filters& filters, int number) {
  return std::ranges::count(filters, number, &Filter::mNumber) > 0;
}

Filters FiltersOfDoubles(bool shuffle, bool deflate, bool fletcher32) {
  Filters filters;
  if (shuffle) {
    filters.push_back({sShuffle, 1, sizeof(double), "shuffle"});
  }
  if (deflate) {
    filters.push_back({sDeflate, 1, 1, "deflate"});
  }
  if (fletcher32) {
    filters.push_back({sFletcher32, 0, 0, "fletcher32"});
  }
  return filters;
}

bool CanEncode(const Filters& filters) {
  const int order[] = {sShuffle, sDeflate, sFletcher32};
  const int* next = order;
  return std::ranges::all_of(filters, [&](const Filter& filter) {
    next = std::find(next, std::end(order), filter.mNumber);
    // HDF5 takes elements of the stored size apart, whatever the size of the type.
    return next != std::end(order) && *next++ == filter.mNumber && filter.HasItsParameters() &&
           (filter.mNumber != sShuffle || filter.mParameter == sizeof(double));
  });
}

}  // namespace ChunkCodec
