#pragma once

#include <hdf5.h>

#include <cstddef>
#include <string>
#include <vector>

#include "Utils/HDF5/GlobalHeap.hpp"
#include "Utils/HDF5/H5_Utils.hpp"

namespace Vexa_H5 {

/// While one lives, the library can hand out elements of strings as they lie in the file. They are
/// made where strings are read, so that no other part of a program meets the conversion. To
/// register it costs more than to read a short list; a program of ours makes one for all that it
/// reads.
class StringConversion {
 public:
  StringConversion();
  ~StringConversion();
  StringConversion(const StringConversion&) = delete;
  StringConversion& operator=(const StringConversion&) = delete;

 private:
  inline static int sLiving = 0;
};

/// Whether strings of variable length, of this type, are made of bytes, as they are in every file
/// that is not damaged.
bool ConsistsOfCharacters(hid_t stringType);

/// Returns what an element of the type takes in the file of an object. A string of variable length
/// lies elsewhere: its element has a length, the address of a collection, and an index in that.
hsize_t ElementBytes(hid_t object_id, hid_t type_id);

/// Returns the `count` strings of a dataset or attribute of strings of variable length, whose
/// elements `read` gives. Fails unless each is in its file as its element says (see GlobalHeap,
/// which must be readable), with `failure` before the reason. HDF5 believes an element: it makes
/// room for the length it gives, copies as much as it finds, past the end of that room too, and
/// takes a string without an address for an empty one.
std::vector<std::string> ReadStringsOfHeap(GlobalHeap& heap, hid_t object_id, std::size_t count,
                                           const ReadCall& read, const char* failure);

}  // namespace Vexa_H5
