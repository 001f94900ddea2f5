#include "Utils/Process/Printable.hpp"

#include "Utils/Process/Utf8.hpp"

namespace {

bool IsUpperControl(std::string_view text) {
  return text.size() > 1 && text[0] == '\xC2' && static_cast<unsigned char>(text[1]) >= 0x80 &&
         static_cast<unsigned char>(text[1]) < 0xA0;
}

// The length of the first character, or 0 if it is not shown as it is.
std::size_t ShownAsItIs(std::string_view text, Vexa::Breaks breaks) {
  const auto byte = static_cast<unsigned char>(text[0]);
  if (byte < 0x20 || byte == 0x7F) {
    return breaks == Vexa::Breaks::Kept && (byte == '\n' || byte == '\t') ? 1 : 0;
  }
  return byte < 0x80 ? 1 : IsUpperControl(text) ? 0 : WellFormedLength(text);
}

}  // namespace

std::size_t Vexa::PlainLength(std::string_view text, Vexa::Breaks breaks) {
  std::size_t length = 0;
  while (length < text.size()) {
    const std::size_t character = ShownAsItIs(text.substr(length), breaks);
    if (character == 0) {
      break;
    }
    length += character;
  }
  return length;
}

Vexa::EscapedCharacter::EscapedCharacter(std::string_view text)
    : mLength(IsUpperControl(text) ? 2 : 1) {
  constexpr std::string_view digits = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(text[mLength - 1]);
  const bool hasName = byte == '\n' || byte == '\t';
  mShownLength = hasName ? 2 : 4;
  mShown = hasName ? std::array{'\\', byte == '\n' ? 'n' : 't', '\0', '\0'}
                   : std::array{'\\', 'x', digits[byte >> 4U], digits[byte & 15U]};
}

std::string Vexa::Printable(std::string_view text, Vexa::Breaks breaks) {
  std::string printable;
  Vexa::PutPrintable(text, breaks, [&printable](std::string_view piece) { printable += piece; });
  return printable;
}
