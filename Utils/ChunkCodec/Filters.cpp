#include "Utils/ChunkCodec/Filters.hpp"

#include <algorithm>

namespace ChunkCodec {

bool Filter::HasItsParameters() const {
  constexpr unsigned highestLevel = 9;
  const bool fits = mNumber == sShuffle ? mParameter > 0 : mParameter <= highestLevel;
  // The checksum has none, and HDF5 looks at none.
  return mNumber == sFletcher32 || (mParameters == 1 && fits);
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
  const Filters ours =
      FiltersOfDoubles(Has(filters, sShuffle), Has(filters, sDeflate), Has(filters, sFletcher32));
  return std::ranges::equal(filters, ours, [](const Filter& filter, const Filter& own) {
    // HDF5 takes elements of the stored size apart, whatever the size of the type.
    return filter.mNumber == own.mNumber && filter.HasItsParameters() &&
           (filter.mNumber != sShuffle || filter.mParameter == own.mParameter);
  });
}

}  // namespace ChunkCodec
