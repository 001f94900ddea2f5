#include "Utils/HDF5/NumberType.hpp"

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/LittleEndian.hpp"
#include "Utils/HDF5/StringElements.hpp"

namespace Vexa_H5 {

namespace {

// No double holds an integer of more bytes than this.
constexpr std::size_t sMostBytes = 128;
// No format has exponents as long, and the library counts in 64 bits.
constexpr std::size_t sMostExponentBits = 32;

bool AreApart(std::size_t first, std::size_t firstSize, std::size_t second,
              std::size_t secondSize) {
  return first + firstSize <= second || second + secondSize <= first;
}

bool HasBitsInElement(hid_t type_id) {
  const std::size_t size = H5Tget_size(type_id);
  const std::size_t precision = H5Tget_precision(type_id);
  const int offset = H5Tget_offset(type_id);
  return size >= 1 && size <= sMostBytes && precision >= 1 && offset >= 0 &&
         precision <= 8 * size && static_cast<std::size_t>(offset) <= 8 * size - precision;
}

bool HasFieldsInElement(hid_t type_id) {
  std::size_t sign = 0;
  std::size_t exponent = 0;
  std::size_t exponentSize = 0;
  std::size_t mantissa = 0;
  std::size_t mantissaSize = 0;
  if (H5Tget_fields(type_id, &sign, &exponent, &exponentSize, &mantissa, &mantissaSize) < 0) {
    return false;
  }
  const std::size_t precision = H5Tget_precision(type_id);
  return sign < precision && exponentSize >= 1 && exponentSize <= sMostExponentBits &&
         mantissaSize >= 1 && exponent + exponentSize <= precision &&
         mantissa + mantissaSize <= precision && AreApart(sign, 1, exponent, exponentSize) &&
         AreApart(sign, 1, mantissa, mantissaSize) &&
         AreApart(exponent, exponentSize, mantissa, mantissaSize);
}

bool IsNumber(hid_t type_id) {
  switch (H5Tget_class(type_id)) {
    case H5T_INTEGER:
      return HasBitsInElement(type_id);
    case H5T_FLOAT:
      return HasBitsInElement(type_id) && HasFieldsInElement(type_id);
    case H5T_ENUM: {
      const DatatypeHandle base_id(H5Tget_super(type_id));
      return base_id >= 0 && H5Tget_class(base_id) == H5T_INTEGER && HasBitsInElement(base_id) &&
             H5Tget_size(base_id) == H5Tget_size(type_id);
    }
    default:
      return false;
  }
}

bool IsString(hid_t type_id) {
  return H5Tget_class(type_id) == H5T_STRING &&
         (H5Tis_variable_str(type_id) == 0 || ConsistsOfCharacters(type_id));
}

// The library tells the size of a fill value only where it writes a list down: behind the name of
// the property and two bytes, in eight.
std::uint64_t BytesOfFillValue(hid_t cparms_id) {
#if H5_VERSION_GE(1, 12, 0)
  const auto encode = H5Pencode1;
#else
  const auto encode = H5Pencode;
#endif
  std::size_t size = 0;
  herr_t err = encode(cparms_id, nullptr, &size);
  REQUIRE_FOR_CALLER(err>=0, "H5Pencode failed");
  std::string list(size, '\0');
  err = encode(cparms_id, list.data(), &size);
  REQUIRE_FOR_CALLER(err>=0, "H5Pencode failed");
  const std::string_view name("fill_value\0", 11);
  const std::size_t at = list.find(name);
  REQUIRE_FOR_CALLER(at!=std::string::npos && list.size()-at>=name.size()+10,
                     "H5Pencode failed: there is no fill value");
  return LittleEndian(list.data() + at + name.size() + 2, 8);
}

}  // namespace

void RequireFittingFillValue(hid_t cparms_id, hid_t type_id, const std::string& name) {
  H5D_fill_value_t kind = H5D_FILL_VALUE_UNDEFINED;
  const herr_t err = H5Pfill_value_defined(cparms_id, &kind);
  REQUIRE_FOR_CALLER(err>=0, "H5Pfill_value_defined failed");
  if (kind == H5D_FILL_VALUE_USER_DEFINED) {
    const std::uint64_t bytes = BytesOfFillValue(cparms_id);
    REQUIRE_FOR_CALLER(bytes==H5Tget_size(type_id),
                       "H5Dread failed for name=" << name << ": its fill value has " << bytes
                           << " bytes, its elements " << H5Tget_size(type_id));
  }
}

DatatypeHandle RequireNumbers(hid_t dataset_id, const std::string& name) {
  DatatypeHandle type_id(H5Dget_type(dataset_id));
  REQUIRE_FOR_CALLER(type_id>=0, "H5Dget_type failed");
  REQUIRE_FOR_CALLER(IsNumber(type_id),
                     "H5Dread failed for name=" << name << ": its elements are no numbers");
  return type_id;
}

void RequireStringsOrNumbers(hid_t dataset_id, const std::string& name) {
  DatatypeHandle type_id(H5Dget_type(dataset_id));
  REQUIRE_FOR_CALLER(type_id>=0, "H5Dget_type failed");
  REQUIRE_FOR_CALLER(IsString(type_id) || IsNumber(type_id),
                     "H5Dread failed: " << name << " holds neither strings nor characters");
}

}  // namespace Vexa_H5
