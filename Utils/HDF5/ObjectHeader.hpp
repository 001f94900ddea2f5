// What the header of an object leads the library to (HDF5 File Format Specification 3.0, IV.A).
// Read here only to see whether it is sound, since the library (1.10.8, tried) trusts it: an
// attribute that claims more than its message holds gets the bytes that lie behind that in memory,
// and the root of a tree that claims large nodes costs gigabytes. A tree for huge objects without
// any is to be removed when its heap is closed, which fails in a file that is read, and so does
// what follows.
#pragma once

#include <hdf5.h>

namespace Vexa_H5 {

/// Fails if the header of an open dataset or group holds an attribute that does not fit its
/// message, or leads to a tree of links, attributes or chunks whose nodes do not fit the file.
/// Other damage is left to the library to find; so is all in a file that is open for writing.
void RequireSoundHeader(hid_t object_id);

}  // namespace Vexa_H5
