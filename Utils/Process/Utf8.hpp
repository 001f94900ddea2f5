#pragma once

#include <cstddef>
#include <string_view>

/// The length of the well-formed character at the beginning of a text that is not empty; 0 if there
/// is none.
std::size_t WellFormedLength(std::string_view text);

/// Whether all of the text is UTF-8, as all ASCII is.
bool IsUtf8(std::string_view text);
