#include "Utils/StringParsing/SimpleConvert.hpp"

#include <gmock/gmock.h>

#include <cfenv>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <locale>
#include <numbers>
#include <stdexcept>

#include "Utils/ErrorHandling/ReportOf.hpp"

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

TEST(ParseBool, ExactWords) {
  for (const char* text : {"1", "yes", "TRUE"}) {
    EXPECT_TRUE(ParseBool(text)) << text;
  }
  for (const char* text : {"0", "No", "false"}) {
    EXPECT_FALSE(ParseBool(text)) << text;
  }
  for (const char* text : {"", " true", "true ", "2", "on", "y"}) {
    EXPECT_THROW(ParseBool(text), std::range_error) << text;
  }
  EXPECT_TRUE(Converted<bool>("Yes"));
  EXPECT_THAT(FailureOf<bool>("maybe"), HasSubstr("\nCould not convert bool\nthe context\n"));
}

TEST(SimpleConvert, PlainNumbers) {
  EXPECT_EQ(Converted<int>("12 "), 12);
  EXPECT_EQ(Converted<int>(" -2147483648"), std::numeric_limits<int>::min());
  EXPECT_EQ(Converted<int>("010"), 10);
  EXPECT_EQ(Converted<double>(" -1"), -1.0);
  EXPECT_EQ(Converted<double>("1e-10"), 1e-10);
  EXPECT_EQ(Converted<double>("4.9406564584124654e-324"),
            std::numeric_limits<double>::denorm_min());
  bool ok = true;
  for (const char* text : {"12x", "", " ", "0x10", "99999999999"}) {
    StringConversion::ConvertTo<int>(text, ok);
    EXPECT_FALSE(ok) << text;
  }
}

TEST(SimpleConvert, Formulas) {
  const struct {
    const char* mText;
    double mValue;
  } cases[] = {{"2*Pi", 2 * std::numbers::pi},
               {"-2^2", -4},
               {"2^-2*3", 0.75},
               {"1e5-1", 99999},
               {"2-3-4", -5},
               {"2^3+2^3", 16},
               {"2^3*2^-3", 1},
               {"(2^3)^2", 64},
               {"2^(3^2)", 512},
               {"sqrt(2^2)^2", 4},
               {"max(2^2,3^2)", 9},
               {"cbrt(27) +\tfloor(-0.5)\n+\v\f log(exp(1))\r", 3}};
  for (const auto& c : cases) {
    EXPECT_DOUBLE_EQ(Converted<double>(c.mText), c.mValue) << c.mText;
  }
  EXPECT_EQ(Converted<int>("1e3"), 1000);
  EXPECT_EQ(Converted<int>("1.\v"), 1);
  EXPECT_EQ(Converted<int>("2^31-1"), std::numeric_limits<int>::max());
  EXPECT_EQ(Converted<int>("-49*(1/49)"), -1);  // whole up to rounding
}

TEST(SimpleConvert, ChainedPowersAreRefused) {
  for (const char* text : {"2^3^2", "2^(1)^2", "2^-3^2", "2^+Pi^2", "2^1e-1^2", "1+(2^3^2)",
                           "sin(1)^2^3", "2 ^ 3\t^ 2", "2*2^3.^2"}) {
    EXPECT_THAT(FailureOf<double>(text),
                HasSubstr("'" + std::string(text) +
                          "': Please use parentheses to disambiguate: 'a^b^c' -> '(a^b)^c'\n"
                          "the context\n"))
        << text;
  }
}

TEST(SimpleConvert, WhatIsNoNumberIsRefused) {
  const char* const refused[] = {
      "",           " ",     "x",       "1,5",   "(1,2)",        "0x10",     "1 2",
      "2Pi",        "2(3)",  "()",      "1e",    "1d5",          "1e5.",     "1_0",
      "_pi",        "pi",    "e",       "--1",   "1<2",          "1?2:3",    "a=5",
      "Pi=3",       "\"a\"", "5%",      "3!",    "3 \xC3\x97 2", "1)",       "(1",
      "1+",         ",",     "sin",     "sin()", "sin(1,2)",     "max(,)",   "inf",
      "nan",        "1e400", "1e400-1", "1/0",   "0/0",          "sqrt(-1)", "log(0)",
      "1e300*1e300"};
  for (const char* text : refused) {
    EXPECT_THAT(FailureOf<double>(text),
                AllOf(HasSubstr("ParseFormula could not evaluate '" + std::string(text) + "'"),
                      HasSubstr("\nthe context\n")))
        << text;
    EXPECT_THAT(FailureOf<int>(text), HasSubstr("\nthe context\n")) << text;
  }
  EXPECT_THAT(FailureOf<double>(std::string("1\0+2", 4)), HasSubstr("Unexpected text"));
  for (const char* text : {"0.5", "3000000000", "-2^31-1", "1e300", "1+1e-10"}) {
    EXPECT_THAT(FailureOf<int>(text),
                AllOf(HasSubstr("Error in converting double to int"), HasSubstr("\nthe context\n")))
        << text;
  }
}

TEST(SimpleConvert, LongAndDeepFormulasEndInAValueOrAReport) {
  const auto nested = [](int n) { return std::string(n, '(') + "1" + std::string(n, ')'); };
  EXPECT_EQ(Converted<int>(nested(5000)), 1);
  const std::string refused[] = {nested(1'000'000), std::string(1'000'000, '('),
                                 std::string(19'000, '-') + "1", std::string(3'000'000, '1')};
  for (const std::string& text : refused) {
    EXPECT_THAT(FailureOf<double>(text), HasSubstr("\nthe context\n"));
  }
}

// A process that traps floating-point errors must get the report, not the signal.
TEST(SimpleConvert, FloatingPointTrapsStayQuiet) {
  const auto withTraps = [] {
    feenableexcept(FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW);
    for (const char* text : {"1e400", "1/0", "sqrt(-1)", "exp(1000)"}) {
      std::cerr << (FailureOf<double>(text).empty() ? "no report\n" : "");
      std::cerr << (FailureOf<int>(text).empty() ? "no report\n" : "");
    }
    std::cerr << "traps " << fegetexcept();
    std::exit(0);
  };
  EXPECT_EXIT(withTraps(), testing::ExitedWithCode(0),
              "^traps " + std::to_string(FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW));
}

// Decimal commas and digit grouping of the user's surroundings change nothing.
TEST(SimpleConvert, NumbersAreReadInTheCLocale) {
  struct CommaPoint : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
  };
  const std::locale before = std::locale::global(std::locale(std::locale(), new CommaPoint));
  const double plain = Converted<double>("1.5");
  const double formula = Converted<double>("3*0.5");
  const std::string refused = FailureOf<double>("1,5");
  std::locale::global(before);
  EXPECT_EQ(plain, 1.5);
  EXPECT_EQ(formula, 1.5);
  EXPECT_THAT(refused, HasSubstr("Expected one value"));
}

TEST(SimpleConvert, ListsAndStrings) {
  EXPECT_EQ(Converted<std::string>("  a b "), "a b");
  EXPECT_EQ(Converted<char>(" x "), 'x');
  EXPECT_THAT(FailureOf<char>("xy"), HasSubstr("Could not convert char\nthe context"));
  EXPECT_THAT(Converted<MyVector<std::string>>("(a , f(b,c))"), ElementsAre("a", "f(b,c)"));
  EXPECT_THAT(Converted<MyVector<int>>("1, max(2,3)"), ElementsAre(1, 3));
  EXPECT_THAT(Converted<MyVector<MyVector<int>>>("((1,2),(3))"),
              ElementsAre(ElementsAre(1, 2), ElementsAre(3)));
  EXPECT_THAT(FailureOf<MyVector<bool>>("yes,"), HasSubstr("Could not convert bool\nthe context"));
}

}  // namespace
