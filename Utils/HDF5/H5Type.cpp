#include "Utils/HDF5/H5Type.hpp"

#include <type_traits>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/Handle.hpp"

using namespace Vexa_H5;

template <class T>
hid_t H5Type() {
  if constexpr (std::is_same_v<T, std::string>) {
    DatatypeHandle type_id(H5Tcopy(H5T_C_S1));
    REQUIRE(type_id>=0, "H5Tcopy failed");
    const herr_t err = H5Tset_size(type_id, HdfConst::H5T_Variable());
    REQUIRE(0==err, "H5Tset_size failed");
    return type_id.Release();
  } else {
    return std::is_same_v<T, double>          ? H5T_NATIVE_DOUBLE
           : std::is_same_v<T, int>           ? H5T_NATIVE_INT
           : std::is_same_v<T, unsigned long> ? H5T_NATIVE_ULLONG
                                              : H5T_NATIVE_SCHAR;
  }
}
template hid_t H5Type<double>();
template hid_t H5Type<int>();
template hid_t H5Type<unsigned long>();
template hid_t H5Type<char>();
template hid_t H5Type<std::string>();

std::size_t HdfConst::H5T_Variable() {
  return H5T_VARIABLE;
}

bool H5TypesEqual(hid_t dataset_id, hid_t type_id) {
  const Vexa::ReportAs label("H5Type");
  DatatypeHandle dataset_type_id(H5Dget_type(dataset_id));
  REQUIRE(dataset_type_id >= 0, "H5Dget_type failed");
  DatatypeHandle native_type_id(H5Tget_native_type(dataset_type_id, H5T_DIR_ASCEND));
  REQUIRE(native_type_id >= 0, "H5Tget_native_type failed");
  const htri_t equal = H5Tequal(native_type_id, type_id);
  REQUIRE(equal >= 0, "H5Tequal failed");
  native_type_id.Close("status >= 0");
  dataset_type_id.Close("status >= 0");
  return equal > 0;
}
