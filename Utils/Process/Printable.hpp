// Names and values from files and from other people, shown in reports and listings. Whoever chose
// them must neither command the terminal nor write lines of a report.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)

namespace Vexa {

/// What becomes of line breaks and tabs: a text of several lines keeps them.
enum class Breaks { Escaped, Kept };

/// Makes a text fit for a terminal: control characters, those from U+0080 to U+009F among them, and
/// bytes that are no UTF-8 become "\n", "\t" or "\x1b".
std::string Printable(std::string_view text, Breaks breaks = Breaks::Escaped);

/// Counts the bytes at the beginning of a text that are shown as they are.
std::size_t PlainLength(std::string_view text, Breaks breaks);

/// How the first character of a text is shown that is not shown as it is.
struct EscapedCharacter {
  explicit EscapedCharacter(std::string_view text);
  std::string_view Shown() const { return {mShown.data(), mShownLength}; }

  std::array<char, 4> mShown;
  std::size_t mShownLength;
  std::size_t mLength;  // in bytes of the text
};

/// Hands the text over to put(std::string_view) in pieces; allocates nothing.
template <class Put>
void PutPrintable(std::string_view text, Breaks breaks, const Put& put) {
  while (!text.empty()) {
    const std::size_t plain = PlainLength(text, breaks);
    put(text.substr(0, plain));
    text.remove_prefix(plain);
    if (!text.empty()) {
      const EscapedCharacter escaped(text);
      put(escaped.Shown());
      text.remove_prefix(escaped.mLength);
    }
  }
}

}  // namespace Vexa

#pragma GCC visibility pop
