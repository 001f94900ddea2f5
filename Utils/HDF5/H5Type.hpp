// HDF5 types of the C++ types that the store reads and writes.
#pragma once

#include <hdf5.h>

#include <string>

#pragma GCC visibility push(default)

/// Returns the HDF5 type of T: double, int, unsigned long (unsigned 64 bits), char (signed 8 bits)
/// or std::string. Only the string type, a null-terminated string of variable length, is new on
/// every call and is closed by the caller; the others belong to the library.
template <class T>
hid_t H5Type();

namespace HdfConst {
/// Returns the library's H5T_VARIABLE.
std::size_t H5T_Variable();
}  // namespace HdfConst

/// Whether the native form of the dataset's stored type equals `type_id`.
bool H5TypesEqual(hid_t dataset_id, hid_t type_id);

#pragma GCC visibility pop
