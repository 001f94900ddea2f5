// Arithmetic formulas where a number is expected: "2*Pi", "1e3/7", "sqrt(2)".
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// The value of a formula: numbers with a decimal point and an exponent, + - * / ^, parentheses,
/// the constant Pi, the functions
///   abs fabs sign sqrt cbrt exp exp2 expm1 ln log (both natural) log2 log10 log1p logb
///   sin cos tan asin acos atan sinh cosh tanh asinh acosh atanh erf erfc lgamma tgamma
///   floor ceil round trunc rint nearbyint
/// of one argument with the values of the C library, atan2 of two, and min max sum avg of a list
/// separated by commas. Names are case-sensitive. -2^2 is -4. Numbers are read the same in every
/// locale.
///
/// Everything else is a REQUIRE failure that quotes the formula, says what is wrong and ends in
/// `context`, which names what is being converted: other characters; '^' chained without
/// parentheses, since some read it from the left and some from the right; several values
/// separated by commas; text that is too long (over 20000 characters); and a value that is not
/// finite, as of 1/0.
double ParseFormula(const std::string& formula, const std::string& context);

#pragma GCC visibility pop
