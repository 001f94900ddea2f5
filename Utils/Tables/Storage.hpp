#pragma once

#include <hdf5.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Utils/ChunkCodec/Filters.hpp"

#pragma GCC visibility push(default)

namespace Tables {

/// The filters of a dataset, whose creation list this is.
ChunkCodec::Filters ReadFilters(hid_t cparms_id);

/// Whether chunks of such a dataset that reach beyond its extents pass no filters.
bool AreEdgesPlain(hid_t cparms_id);

/// Fails on a filter that is not ours, or has parameters with which the library undoes none. What
/// HDF5 (1.10.8, tried) makes of a damaged chunk of another, such as scale-offset or szip, may be
/// anything, and kill the process; and so may two deflates. Where all are known, what is damaged is
/// all that can keep a dataset from being read.
void RequireKnownFilters(const ChunkCodec::Filters& filters, const std::string& name);

/// What a dataset takes on disk, and the filters that its chunks pass when they are written.
struct Storage {
  std::vector<std::string> mFilters;    // in their order: "shuffle", "deflate 1", "fletcher32", ...
  std::optional<std::uint64_t> mBytes;  // none where the file cannot have what it claims
};

/// Tells how an open dataset is stored.
Storage ReadStorage(hid_t dataset_id);

/// Fails if the values of a dataset, whose creation list this is, are not in its file: if it is
/// virtual or has external storage. What such a dataset names may be anything, itself or a device,
/// and is opened when the library is asked for extents or values.
void RequireOwnStorage(hid_t cparms_id, const std::string& name);

}  // namespace Tables

#pragma GCC visibility pop
