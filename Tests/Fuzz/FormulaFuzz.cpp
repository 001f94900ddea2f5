// The input is a number or a formula. A formula of whole numbers must have the value that an
// evaluator of its own finds, and any formula must keep its value in parentheses and after a sign.
#include <bit>
#include <cmath>
#include <cstdlib>
#include <optional>

#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/StringParsing/ParseFormula.hpp"
#include "Utils/StringParsing/SimpleConvert.hpp"

namespace {

// Evaluates formulas of numbers without a point, as long as all values on the way are whole and
// exact as doubles, so that the order of operations cannot matter. Gives up on anything else.
class WholeNumbers {
 public:
  static std::optional<double> Value(std::string_view formula) {
    WholeNumbers evaluator(formula);
    const std::optional<double> value = evaluator.Sum(0);
    evaluator.SkipBlanks();
    return evaluator.mRest.empty() ? value : std::nullopt;
  }

 private:
  explicit WholeNumbers(std::string_view formula) : mRest(formula) {}

  void SkipBlanks() {
    mRest.remove_prefix(std::min(mRest.find_first_not_of(" \t\n\r"), mRest.size()));
  }
  bool Take(char c) {
    SkipBlanks();
    const bool isNext = mRest.starts_with(c);
    mRest.remove_prefix(isNext ? 1 : 0);
    return isNext;
  }
  static std::optional<double> Exact(double value) {
    constexpr double limit = 9007199254740992.0;  // 2^53
    return std::abs(value) < limit && value == std::floor(value) ? std::optional(value)
                                                                 : std::nullopt;
  }

  std::optional<double> Sum(int depth) {
    bool isNegative = Take('-');
    std::optional<double> sum = 0;
    do {
      const std::optional<double> next = Product(depth);
      sum = sum && next ? Exact(isNegative ? *sum - *next : *sum + *next) : std::nullopt;
      isNegative = sum && Take('-');
    } while (isNegative || (sum && Take('+')));
    return sum;
  }
  std::optional<double> Product(int depth) {
    std::optional<double> product = Power(depth);
    while (product) {
      const bool isQuotient = Take('/');
      if (!isQuotient && !Take('*')) {
        break;
      }
      const std::optional<double> next = Power(depth);
      product = next ? Exact(isQuotient ? *product / *next : *product * *next) : std::nullopt;
    }
    return product;
  }
  std::optional<double> Power(int depth) {
    const std::optional<double> base = Operand(depth);
    if (!base || !Take('^')) {
      return base;
    }
    const std::optional<double> exponent = Operand(depth);
    if (!exponent || *exponent < 0 || *exponent > 60) {
      return std::nullopt;
    }
    std::optional<double> power = 1;
    for (int i = 0; i < *exponent && power; ++i) {
      power = Exact(*power * *base);
    }
    return power;
  }
  std::optional<double> Operand(int depth) {
    if (Take('(')) {
      const std::optional<double> value = depth < 100 ? Sum(depth + 1) : std::nullopt;
      return value && Take(')') ? value : std::nullopt;
    }
    SkipBlanks();
    const std::size_t digits = std::min(mRest.find_first_not_of("0123456789"), mRest.size());
    if (digits == 0 || digits > 15) {
      return std::nullopt;
    }
    const double value = std::atof(std::string(mRest.substr(0, digits)).c_str());
    mRest.remove_prefix(digits);
    return value;
  }

  std::string_view mRest;
};

std::optional<double> ValueOf(const std::string& text) {
  double value = 0;
  const bool succeeds = Fuzz::Succeeds([&] { SimpleConvert(text, "context", value); });
  FUZZ_CHECK(!succeeds || std::isfinite(value), text);
  return succeeds ? std::optional(value) : std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(Fuzz::Text(data, size));
  const std::optional<double> value = ValueOf(text);
  if (const std::optional<double> expected = WholeNumbers::Value(text)) {
    FUZZ_CHECK(value == expected, "'" + text + "' is " + std::to_string(*expected));
  }
  int whole = 0;
  const bool isWhole = Fuzz::Succeeds([&] { SimpleConvert(text, "context", whole); });
  if (value) {
    FUZZ_CHECK(ValueOf("(" + text + ")") == value, text);
    FUZZ_CHECK(ValueOf("-(" + text + ")") == -*value, text);
    double again = 0;
    if (Fuzz::Succeeds([&] { again = ParseFormula(text, "context"); })) {
      FUZZ_CHECK(again == *value, "as a formula, '" + text + "' is " + std::to_string(again));
    }
  }
  if (isWhole) {
    FUZZ_CHECK(value && std::abs(*value - whole) <= 1e-14 * (1 + std::abs(*value)), text);
  } else {
    FUZZ_CHECK(!value || *value != std::floor(*value) || std::abs(*value) > 2147483647, text);
  }
  return 0;
}
