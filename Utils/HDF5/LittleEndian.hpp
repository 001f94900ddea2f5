#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Vexa_H5 {

/// Returns the number that a file holds in these bytes, of which there are at most eight: the first
/// of them counts least.
inline std::uint64_t LittleEndian(const void* bytes, std::size_t count) {
  std::uint64_t number = 0;
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(&number, bytes, count);
    return number;
  }
  while (count-- > 0) {
    number = number << 8 | static_cast<const unsigned char*>(bytes)[count];
  }
  return number;
}

}  // namespace Vexa_H5
