#include "Utils/H5/H5_NumberType.hpp"

#include <cstddef>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/H5/H5_StringElements.hpp"

namespace {

using Location = std::source_location;

// Of an element; no double holds an integer of more.
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
         (H5Tis_variable_str(type_id) == 0 || Vexa_H5::ConsistsOfCharacters(type_id));
}

}  // namespace

DatatypeHandle RequireNumbers(hid_t dataset_id, const std::string& name, Location where) {
  DatatypeHandle type_id(H5Dget_type(dataset_id));
  REQUIRE_AT(where, type_id>=0, "H5Dget_type failed");
  REQUIRE_AT(where, IsNumber(type_id),
             "H5Dread failed for name=" << name << ": its elements are no numbers");
  return type_id;
}

void RequireStringsOrNumbers(hid_t dataset_id, const std::string& name, Location where) {
  DatatypeHandle type_id(H5Dget_type(dataset_id));
  REQUIRE_AT(where, type_id>=0, "H5Dget_type failed");
  REQUIRE_AT(where, IsString(type_id) || IsNumber(type_id),
             "H5Dread failed: " << name << " holds neither strings nor characters");
  const herr_t err = type_id.Close();
  REQUIRE_AT(where, 0==err, "H5Tclose failed");
}
