#pragma once

#include <hdf5.h>

#include <cstdint>
#include <source_location>
#include <string>
#include <vector>

/// What a dataset takes on disk, and the filters that its chunks pass when they are written.
struct H5_Storage {
  std::vector<std::string> mFilters;  // in their order: "shuffle", "deflate 1", "fletcher32", ...
  std::uint64_t mBytes = 0;
};

/// Of an open dataset. Filters are named as HDF5 and the makers of further filters name them.
H5_Storage ReadStorage(hid_t dataset_id, std::source_location where);

/// Fails unless this library has all the filters of the dataset, and elements of its type can
/// become doubles: then what is damaged is all that can keep it from being read.
void RequireReadableDoubles(hid_t dataset_id, const std::string& name, std::source_location where);
