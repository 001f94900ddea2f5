#include "Utils/StringParsing/SimpleConvert.hpp"

#include <cmath>
#include <limits>
#include <locale>
#include <sstream>
#include <stdexcept>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/StringParsing/ParseFormula.hpp"
#include "Utils/StringParsing/QuietFloatingPoint.hpp"

bool ParseBool(const std::string& text) {
  if (text == "1" || CaseInsensitiveEqual(text, "yes") || CaseInsensitiveEqual(text, "true")) {
    return true;
  }
  if (text == "0" || CaseInsensitiveEqual(text, "no") || CaseInsensitiveEqual(text, "false")) {
    return false;
  }
  throw std::range_error("ParseBool");
}

template <class T>
T StringConversion::ConvertTo(const std::string& text, bool& ok) {
  const QuietFloatingPoint quiet;
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  T value{};
  stream >> value;
  ok = !stream.fail();
  stream >> std::ws;
  ok = ok && stream.eof();
  return value;
}
template int StringConversion::ConvertTo<int>(const std::string& text, bool& ok);
template double StringConversion::ConvertTo<double>(const std::string& text, bool& ok);

void SimpleConvert(const std::string& text, const std::string& /*context*/, std::string& out) {
  out = RemoveLeadingAndTrailingWhitespace(text);
}

void SimpleConvert(const std::string& text, const std::string& context, bool& out) {
  try {
    out = ParseBool(text);
  } catch (const std::range_error&) {
    REQUIRE(false, "Could not convert bool\n" << Vexa::Verbatim(context));
  }
}

void SimpleConvert(const std::string& text, const std::string& context, int& out) {
  bool ok = false;
  out = StringConversion::ConvertTo<int>(text, ok);
  if (ok) {
    return;
  }
  const double value = ParseFormula(text, context);
  const double whole = std::round(value);
  const bool isWhole = std::abs(value - whole) / (std::abs(value) + 1) < 1e-14;
  const bool fits =
      whole >= std::numeric_limits<int>::min() && whole <= std::numeric_limits<int>::max();
  REQUIRE(isWhole && fits, "Error in converting double to int: '" << text << "' is " << value
                                                                  << "\n"
                                                                  << Vexa::Verbatim(context));
  out = static_cast<int>(whole);
}

void SimpleConvert(const std::string& text, const std::string& context, double& out) {
  bool ok = false;
  out = StringConversion::ConvertTo<double>(text, ok);
  if (!ok) {
    out = ParseFormula(text, context);
  }
}

void SimpleConvert(const std::string& text, const std::string& context, char& out) {
  const std::string trimmed = RemoveLeadingAndTrailingWhitespace(text);
  REQUIRE(trimmed.size()==1, "Could not convert char\n" << Vexa::Verbatim(context));
  out = trimmed[0];
}
