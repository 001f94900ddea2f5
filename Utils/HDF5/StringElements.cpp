#include "Utils/HDF5/StringElements.hpp"

#include <algorithm>
#include <cstddef>
#include <span>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/H5Type.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/StoredChunks.hpp"

using namespace Vexa_H5;

namespace {

// What the library calls to convert elements of strings to bytes: it leaves them as they lie in the
// file. Both types must take as much.
herr_t LeaveElements(hid_t source, hid_t destination, H5T_cdata_t* conversion, std::size_t,
                     std::size_t, std::size_t, void*, void*, hid_t) {
  if (conversion->command != H5T_CONV_INIT) {
    return 0;
  }
  conversion->need_bkg = H5T_BKG_NO;
  return H5Tget_size(source) == H5Tget_size(destination) ? 0 : -1;
}

constexpr const char* sConversionName = "string elements";

bool IsNothingStored(hid_t dataset_id) {
  const PropertyListHandle cparms_id(H5Dget_create_plist(dataset_id));
  REQUIRE_FOR_CALLER(cparms_id>=0, "H5Dget_create_plist failed");
  const auto stored = LookUpStoredBytes(dataset_id, ReadChunkGrid(dataset_id, cparms_id));
  return stored && *stored == 0;
}

}  // namespace

StringConversion::StringConversion() {
  if (sLiving == 0) {
    const DatatypeHandle bytes(H5Tcreate(H5T_OPAQUE, 1));
    REQUIRE_FOR_CALLER(bytes>=0, "H5Tcreate failed");
    const DatatypeHandle string(H5Tcopy(H5T_C_S1));
    const herr_t registered =
        H5Tset_size(string, HdfConst::H5T_Variable()) < 0
            ? -1
            : H5Tregister(H5T_PERS_SOFT, sConversionName, string, bytes, LeaveElements);
    REQUIRE_FOR_CALLER(registered>=0, "H5Tregister failed");
  }
  ++sLiving;  // at last: what fails above has made nothing that lives
}

StringConversion::~StringConversion() {
  if (--sLiving == 0) {
    H5Tunregister(H5T_PERS_SOFT, sConversionName, -1, -1, LeaveElements);
  }
}

bool Vexa_H5::ConsistsOfCharacters(hid_t stringType) {
  const DatatypeHandle type_id(H5Tget_super(stringType));
  return type_id >= 0 && H5Tget_class(type_id) == H5T_INTEGER && H5Tget_size(type_id) == 1 &&
         H5Tget_precision(type_id) == 8 && H5Tget_offset(type_id) == 0 &&
         H5Tget_sign(type_id) == H5T_SGN_NONE;
}

hsize_t Vexa_H5::ElementBytes(hid_t object_id, hid_t type_id) {
  return H5Tis_variable_str(type_id) > 0 ? GlobalHeap(object_id, "H5Dread failed").ElementBytes()
                                         : H5Tget_size(type_id);
}

std::vector<std::string> Vexa_H5::ReadStringsOfHeap(GlobalHeap& heap, hid_t object_id,
                                                    std::size_t count, const ReadCall& read,
                                                    const char* failure) {
  std::vector<std::string> strings;
  if (count == 0) {
    return strings;
  }
  const std::size_t elementBytes = heap.ElementBytes();
  const StringConversion conversion;
  const DatatypeHandle type_id(H5Tcreate(H5T_OPAQUE, elementBytes));
  REQUIRE_FOR_CALLER(type_id>=0, "H5Tcreate failed");
  std::vector<std::byte> elements(count * elementBytes);
  const herr_t err = read(type_id, elements.data());
  REQUIRE_FOR_CALLER(err>=0, failure);
  // What was never written is all the same string: the fill value.
  const bool areAlike = std::equal(elements.begin() + static_cast<std::ptrdiff_t>(elementBytes),
                                   elements.end(), elements.begin());
  const bool mayShare =
      areAlike && H5Iget_type(object_id) != H5I_ATTR && IsNothingStored(object_id);
  strings.reserve(count);
  for (std::size_t at = 0; at < elements.size(); at += elementBytes) {
    strings.push_back(heap.String(std::span(elements).subspan(at, elementBytes), mayShare));
  }
  return strings;
}
