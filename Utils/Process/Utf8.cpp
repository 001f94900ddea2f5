#include "Utils/Process/Utf8.hpp"

#include <algorithm>

std::size_t WellFormedLength(std::string_view text) {
  const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  if (first < 0x80) {
    return 1;
  }
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) {
    return 0;
  }
  // A character is neither longer than need be, nor a surrogate, nor past U+10FFFF.
  const unsigned char second = byte(1);
  if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
      (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) {
    return 0;
  }
  return std::all_of(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(length),
                     [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; })
             ? length
             : 0;
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = WellFormedLength(text);
    if (length == 0) {
      return false;
    }
    text.remove_prefix(length);
  }
  return true;
}
