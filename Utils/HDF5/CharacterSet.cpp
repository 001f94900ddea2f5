#include "Utils/HDF5/CharacterSet.hpp"

#include <algorithm>

#include "Utils/Process/Utf8.hpp"

H5T_cset_t Vexa_H5::CharacterSetOf(std::span<const std::string_view> strings) {
  const bool isAscii = std::ranges::all_of(strings, [](std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  });
  return !isAscii && std::ranges::all_of(strings, IsUtf8) ? H5T_CSET_UTF8 : H5T_CSET_ASCII;
}
