#pragma once

#include <hdf5.h>

#include <source_location>
#include <string>

namespace Vexa_H5 {

/// What an element of the type takes in the file of an object. A string of variable length lies
/// elsewhere: its element has a length, the address of a collection, and an index in that.
hsize_t ElementBytes(hid_t object_id, hid_t type_id,
                     std::source_location where = std::source_location::current());

/// Fails if a dataset of strings of variable length claims more characters than its file has. HDF5
/// would ask for that memory, and fill it, before it looks for the strings. Sees the lengths of
/// contiguous datasets and of chunks that H5_RawChunks can read, and fails on damaged chunks and
/// on compact datasets.
void RequireStringsInFile(hid_t dataset_id, const std::string& name,
                          std::source_location where = std::source_location::current());

}  // namespace Vexa_H5
