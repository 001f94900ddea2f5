// Glob patterns over names of datasets and files.
#pragma once

#include <string>

#include "Utils/Containers/MyVector.hpp"

#pragma GCC visibility push(default)

/// True if the whole text matches the glob. '*' matches any run of characters, '/' included, and
/// '?' exactly one; every other character matches only itself. There is no escape and no character
/// class. A '*' that is not the glob's last character needs at least one character of text at its
/// position, so "a**" does not match "a", while "a*" does.
///
/// '|' separates alternatives: "x|y*". They are tried from left to right up to the first match.
/// Parentheses do not group: a '|' inside them separates nothing, and then the glob fails with
/// "GlobMatches encountered |, but found only 1 piece.". An alternative that is reached and is
/// empty fails with "GlobMatches with comma-separated globs encountered empty piece.".
///
/// Takes at most |glob| * |text| steps.
bool GlobMatches(const std::string& glob, const std::string& text);

/// True if at least one of the globs matches; false for an empty list.
bool AnyGlobMatches(const MyVector<std::string>& globs, const std::string& text);

#pragma GCC visibility pop
