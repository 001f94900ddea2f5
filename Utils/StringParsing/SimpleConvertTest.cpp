#include "Utils/StringParsing/SimpleConvert.hpp"

#include <gmock/gmock.h>

#include <cfenv>
#include <climits>
#include <cstdlib>
#include <limits>
#include <locale>
#include <numbers>
#include <utility>

#include "Utils/ErrorHandling/TestSupport/ReportOf.hpp"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

template <class T>
T Converted(const std::string& text) {
  T value{};
  SimpleConvert(text, "the context", value);
  return value;
}

template <class T>
std::string FailureOf(const std::string& text) {
  return ReportOf([&text] { Converted<T>(text); });
}

TEST(SimpleConvert, NumbersAndFormulas) {
  const std::pair<const char*, double> cases[] = {
      {" -1", -1},
      {"4.9406564584124654e-324", std::numeric_limits<double>::denorm_min()},
      {"2*Pi", 2 * std::numbers::pi},
      {"-2^2", -4},
      {"1e5-3-4", 99993},
      {"2^(3^2) + 2^-2*3 + max(2^2,3^2)", 521.75},
      {"cbrt(27) +\tfloor(-0.5)\n+\v\f log(exp(1))\r", 3},
      {"log10(1e3) + log2(8) + ln(exp(1)) + exp2(3) + logb(9)", 18},
      {"rint(2.5) + 10*nearbyint(-1.5) + 100*round(2.5) + 1000*trunc(-2.7)", -1718},
      {"ceil(-0.5) + 10*abs(-1) + 100*fabs(-2) + 1000*sign(-3)", -790},
      {"asinh(1e-20) + atanh(1e-20) + expm1(1e-20) + log1p(2e-20)", 5e-20},
      {"expm1(1) + 10*log1p(1)", 8.649753634058499},
      {"acosh(1e200)", 461.2101657793691},
      {"2*erf(10) + erfc(0) + tgamma(5) + exp(lgamma(4))", 33},
      {"sin(Pi/6) + cos(Pi/3) + tan(Pi/4) + sqrt(4)", 4},
      {"sinh(1) + 10*cosh(1) + 100*tanh(1)", 92.76542313737272},
      {"(asin(1) + acos(0) + 2*atan(1) + 4*atan2(1,-1))/Pi", 4.5}};
  for (const auto& [text, value] : cases) {
    EXPECT_DOUBLE_EQ(Converted<double>(text), value) << text;
  }
  // The last two are whole but for rounding.
  EXPECT_THAT(Converted<MyVector<int>>("12 ,010, -2147483648,2^31-1,-2^31,-49*(1/49),49*(1/49)"),
              ElementsAre(12, 10, INT_MIN, INT_MAX, INT_MIN, -1, 1));
}

TEST(SimpleConvert, WhatIsNoNumberIsRefused) {
  for (const char* text : {"2^3^2", "2^(1)^2", "2^-3^2", "2^1e-1^2", "1+(2^3^2)", "2*2^3.^2"}) {
    EXPECT_THAT(FailureOf<double>(text), HasSubstr("': Please use parentheses to disambiguate: "
                                                   "'a^b^c' -> '(a^b)^c'\nthe context\n"));
  }
  for (const char* text : {"", "1,5", "0x10", "2Pi", "pi", "e", "_pi", "1<2", "1?2:3", "a=5",
                           "\"a\"", "1)", "1e400", "1e400-1", "1/0", "0/0", "inf", "nan", "12x"}) {
    EXPECT_THAT(FailureOf<double>(text), AllOf(HasSubstr("ParseFormula could not evaluate '"),
                                               HasSubstr("\nthe context\n")));
  }
  EXPECT_THAT(FailureOf<double>(std::string("1\0+2", 4)), HasSubstr("Unexpected text"));
  for (const char* text : {"0.5", "3000000000", "-2^31-1", "1e300", "1+1e-10"}) {
    EXPECT_THAT(FailureOf<int>(text),
                HasSubstr("Error in converting double to int: '" + std::string(text)));
  }
}

TEST(SimpleConvert, LongAndDeepFormulasEndInAValueOrAReport) {
  const auto nested = [](int n) { return std::string(n, '(') + "1" + std::string(n, ')'); };
  EXPECT_EQ(Converted<int>(nested(5000)), 1);
  for (const std::string& text : {nested(1'000'000), std::string(1'000'000, '('),
                                  std::string(19'000, '-') + "1", std::string(3'000'000, '1')}) {
    EXPECT_THAT(FailureOf<double>(text), HasSubstr("\nthe context\n"));
  }
}

// A process that traps floating-point errors must get the report, not the signal.
TEST(SimpleConvert, FloatingPointTrapsStayQuiet) {
  const auto withTraps = [] {
    feenableexcept(FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW);
    for (const char* text : {"1e400", "1/0", "sqrt(-1)", "exp(1000)"}) {
      FailureOf<int>(text);
    }
    std::exit(fegetexcept() == (FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW) ? 0 : 1);
  };
  EXPECT_EXIT(withTraps(), testing::ExitedWithCode(0), "^$");
}

// The decimal comma of a user's surroundings changes nothing.
TEST(SimpleConvert, NumbersAreReadInTheCLocale) {
  struct CommaPoint : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
  };
  const std::locale before = std::locale::global(std::locale(std::locale(), new CommaPoint));
  EXPECT_EQ(Converted<double>("1.5"), 1.5);
  EXPECT_EQ(Converted<double>("3*0.5"), 1.5);
  EXPECT_THAT(FailureOf<double>("1,5"), HasSubstr("Expected one value"));
  std::locale::global(before);
}

TEST(SimpleConvert, WordsAndLists) {
  EXPECT_THAT(Converted<MyVector<bool>>("1,yes,TRUE,0,No,false"),
              ElementsAre(true, true, true, false, false, false));
  for (const char* text : {"", " true", "2", "y"}) {
    EXPECT_THAT(FailureOf<bool>(text), HasSubstr("\nCould not convert bool\nthe context\n"));
  }
  EXPECT_EQ(Converted<char>(" x "), 'x');
  EXPECT_THAT(FailureOf<char>("xy"), HasSubstr("Could not convert char\nthe context"));
  EXPECT_THAT(Converted<MyVector<std::string>>("(a , f(b,c))"), ElementsAre("a", "f(b,c)"));
  EXPECT_THAT(Converted<MyVector<MyVector<int>>>("((1,2),(max(3,4)))"),
              ElementsAre(ElementsAre(1, 2), ElementsAre(4)));
}

}  // namespace
