#include "Utils/StringParsing/ParseFormula.hpp"

#include <muParser.h>

#include <cmath>
#include <cstddef>
#include <numbers>
#include <string_view>
#include <utility>
#include <vector>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/StringParsing/QuietFloatingPoint.hpp"

namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsNameCharacter(char c) {
  return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

// The position after the number or name that begins at i. The sign of an exponent belongs to the
// number and is no operator.
std::size_t EndOfOperand(const std::string& formula, std::size_t i) {
  const bool isNumber = !IsNameCharacter(formula[i]) || IsDigit(formula[i]);
  const auto at = [&formula](std::size_t k) { return k < formula.size() ? formula[k] : '\0'; };
  if (isNumber) {
    while (IsDigit(at(i)) || at(i) == '.') {
      ++i;
    }
    const bool isSigned = at(i + 1) == '+' || at(i + 1) == '-';
    if ((at(i) == 'e' || at(i) == 'E') && IsDigit(at(isSigned ? i + 2 : i + 1))) {
      i += isSigned ? 2 : 1;
    }
  }
  while (IsNameCharacter(at(i))) {
    ++i;
  }
  return i;
}

// Says why the evaluator must not see the formula, or returns an empty text. The evaluator would
// take comparisons, strings and assignments, and it would evaluate a chained '^' from the right
// without a word.
std::string WhatIsRefused(const std::string& formula) {
  std::vector<bool> powerIsOpen{false};  // per depth: would another '^' be chained?
  bool operandBefore = false;            // else a '+' or '-' is a sign
  for (std::size_t i = 0; i < formula.size(); ++i) {
    const char c = formula[i];
    if (IsNameCharacter(c) || c == '.') {
      i = EndOfOperand(formula, i) - 1;
      operandBefore = true;
      continue;
    }
    if (std::string_view(" \t\n\r\v\f").find(c) != std::string_view::npos) {
      continue;
    }
    switch (c) {
      case '(':
        powerIsOpen.push_back(false);
        break;
      case ')':
        if (powerIsOpen.size() > 1) {  // one too many is left to the evaluator's own report
          powerIsOpen.pop_back();
        }
        operandBefore = true;
        continue;
      case '^':
        if (powerIsOpen.back()) {
          return "Please use parentheses to disambiguate: 'a^b^c' -> '(a^b)^c'";
        }
        powerIsOpen.back() = true;
        break;
      case '+':
      case '-':
        powerIsOpen.back() = powerIsOpen.back() && !operandBefore;
        break;
      case '*':
      case '/':
      case ',':
        powerIsOpen.back() = false;
        break;
      default:
        return "Unexpected text '" + formula.substr(i) + "'";
    }
    operandBefore = false;
  }
  return "";
}

// Functions of one argument are those of the C library under their names there; the evaluator's own
// round, underflow and overflow where they need not.
void DefineNames(mu::Parser& parser) {
  parser.ClearConst();
  parser.DefineConst("Pi", std::numbers::pi);
  const std::pair<const char*, double (*)(double)> functions[] = {{"abs", std::fabs},
                                                                  {"fabs", std::fabs},
                                                                  {"sqrt", std::sqrt},
                                                                  {"cbrt", std::cbrt},
                                                                  {"exp", std::exp},
                                                                  {"exp2", std::exp2},
                                                                  {"expm1", std::expm1},
                                                                  {"ln", std::log},
                                                                  {"log", std::log},
                                                                  {"log2", std::log2},
                                                                  {"log10", std::log10},
                                                                  {"log1p", std::log1p},
                                                                  {"logb", std::logb},
                                                                  {"sin", std::sin},
                                                                  {"cos", std::cos},
                                                                  {"tan", std::tan},
                                                                  {"asin", std::asin},
                                                                  {"acos", std::acos},
                                                                  {"atan", std::atan},
                                                                  {"sinh", std::sinh},
                                                                  {"cosh", std::cosh},
                                                                  {"tanh", std::tanh},
                                                                  {"asinh", std::asinh},
                                                                  {"acosh", std::acosh},
                                                                  {"atanh", std::atanh},
                                                                  {"erf", std::erf},
                                                                  {"erfc", std::erfc},
                                                                  {"floor", std::floor},
                                                                  {"lgamma", std::lgamma},
                                                                  {"tgamma", std::tgamma},
                                                                  {"ceil", std::ceil},
                                                                  {"round", std::round},
                                                                  {"trunc", std::trunc},
                                                                  {"rint", std::rint},
                                                                  {"nearbyint", std::nearbyint}};
  for (const auto& [name, function] : functions) {
    parser.DefineFun(name, function);
  }
}

// Returns the value; if there is none, returns nan and leaves the reason in `problem`.
double Evaluate(const std::string& formula, std::string& problem) {
  problem = WhatIsRefused(formula);
  if (!problem.empty()) {
    return std::nan("");
  }
  try {
    mu::Parser parser;
    DefineNames(parser);
    parser.SetExpr(formula);
    int numberOfValues = 0;
    const double* values = parser.Eval(numberOfValues);
    if (numberOfValues != 1) {
      problem = "Expected one value, got several separated by commas";
    } else if (!std::isfinite(values[0])) {
      problem = "The value is not a finite number";
    }
    return values[numberOfValues - 1];
  } catch (const mu::Parser::exception_type& error) {
    problem = error.GetMsg();
    return std::nan("");
  }
}

}  // namespace

double ParseFormula(const std::string& formula, const std::string& context) {
  std::string problem;
  double value = 0;
  {
    const QuietFloatingPoint quiet;
    value = Evaluate(formula, problem);
  }
  REQUIRE(problem.empty(), "ParseFormula could not evaluate '" << formula << "': " << problem
                                                               << "\n"
                                                               << Vexa::Verbatim(context));
  return value;
}
