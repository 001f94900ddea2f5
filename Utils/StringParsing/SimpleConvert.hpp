// Conversion of option values from text to typed values.
#pragma once

#include <cstdint>
#include <string>

#include "Utils/Containers/MyVector.hpp"
#include "Utils/StringParsing/SplitStrings.hpp"

#pragma GCC visibility push(default)

/// True for "1", "yes", "true", false for "0", "no", "false"; the words in any case, nothing
/// trimmed. Anything else throws std::range_error("ParseBool"), so that a caller can add context.
bool ParseBool(const std::string& text);

namespace StringConversion {
/// Reads an int or a double as a stream in the C locale does, leading and trailing blanks aside.
/// `ok` tells whether that succeeded and took the whole text; if not, the result means nothing.
/// "12 " is accepted; "12x", "0x10", "nan" and numbers that do not fit are not.
template <class T>
T ConvertTo(const std::string& text, bool& ok);
}  // namespace StringConversion

/// Convert the text into `out`. What cannot be converted is a REQUIRE failure that ends in
/// `context`, a text that says what is being converted.
///
/// - string: trimmed.
/// - bool: by ParseBool, else "Could not convert bool\n".
/// - double, int: a plain number, else a formula (see ParseFormula). The formula's value for an int
///   must be whole up to rounding (1e-14 relative) and fit, else "Error in converting double to
///   int".
/// - char: one character, blanks around it aside, else "Could not convert char\n".
void SimpleConvert(const std::string& text, const std::string& context, std::string& out);
void SimpleConvert(const std::string& text, const std::string& context, bool& out);
void SimpleConvert(const std::string& text, const std::string& context, int& out);
void SimpleConvert(const std::string& text, const std::string& context, double& out);
void SimpleConvert(const std::string& text, const std::string& context, char& out);

/// A list: "a, b" or "(a, b)", split at ',' outside of parentheses, each piece by its own rule. An
/// empty text is a list of one empty piece.
template <class T>
void SimpleConvert(const std::string& text, const std::string& context, MyVector<T>& out) {
  const MyVector<std::string> pieces =
      SplitStrings(RemoveOverallParenthesesIfPresent(text, '(', ')'), ',');
  out.assign(MV::Size(pieces.size()));
  for (std::uint64_t i = 0; i < pieces.size(); ++i) {
    SimpleConvert(pieces[i], context, out[i]);
  }
}

#pragma GCC visibility pop
