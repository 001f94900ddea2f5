// The input is a number or a formula. It must keep its value in parentheses and after a sign, take
// part in sums, lists and products of powers, and be refused where a power is chained to it.
#include <cmath>
#include <optional>

#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/StringParsing/ParseFormula.hpp"
#include "Utils/StringParsing/SimpleConvert.hpp"

namespace {

std::optional<double> ValueOf(const std::string& text) {
  double value = 0;
  const bool succeeds = Fuzz::Succeeds([&] { SimpleConvert(text, "context", value); });
  FUZZ_CHECK(!succeeds || std::isfinite(value), text);
  return succeeds ? std::optional(value) : std::nullopt;
}

}  // namespace

void Fuzz::Target(std::string_view input) {
  const std::string text(input);
  const std::optional<double> value = ValueOf(text);
  int whole = 0;
  const bool isWhole = Fuzz::Succeeds([&] { SimpleConvert(text, "context", whole); });
  if (value) {
    FUZZ_CHECK(ValueOf("(" + text + ")") == value, text);
    FUZZ_CHECK(std::abs(*value) > 1e300 || ValueOf("2^3*(" + text + ")^1/2^3") == value, text);
    FUZZ_CHECK(!ValueOf(text + "^1^1") && !ValueOf("(" + text + ")^-1^1"), text);
    Fuzz::Succeeds([&] { FUZZ_CHECK(ParseFormula(text, "context") == *value, text); });
  }
  const bool fits = value && *value == std::floor(*value) && std::abs(*value) <= 2147483647;
  FUZZ_CHECK(isWhole || !fits, text);
  FUZZ_CHECK(!isWhole || std::abs(value.value() - whole) <= 1e-14 * (1 + std::abs(*value)), text);
}
