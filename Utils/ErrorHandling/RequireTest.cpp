#include "Utils/ErrorHandling/Require.hpp"

#include <gmock/gmock.h>

#include <cstdlib>
#include <iomanip>

#include "Utils/ErrorHandling/TestSupport/ReportOf.hpp"

#define EXPANDED_BY_THE_PREPROCESSOR 1

namespace {

using testing::HasSubstr;

constexpr int sLineInShared = __LINE__ + 2;
void Shared() {
  REQUIRE_FOR_CALLER(1 < 0, "shared\n");
}

TEST(RequireTest, NamesConditionAsWrittenSourceAndLine) {
  setenv("VEXA_NO_BACKTRACE", "1", 1);
  int x = 0;
  REQUIRE(x == 0, ++x);  // the message is built on failure only
  const auto fail = [x] { REQUIRE(x>EXPANDED_BY_THE_PREPROCESSOR, "x=" << x << '!'); };
  const int line = __LINE__ - 1;
  EXPECT_EQ(ReportOf(fail),
            "\n#######################  REQUIRE  FAILED  #######################\n"
            "#### x>EXPANDED_BY_THE_PREPROCESSOR  violated\n"
            "#### RequireTest (line " +
                std::to_string(line) +
                ")\nx=0!\n"
                "#################################################################\n\n");
}

TEST(RequireTest, NamesPassForNoLineOfTheReport) {
  const std::string name = "a\n####\x1b[2J\xff";
  const Vexa::ReportContext context(name, name);
  const std::string shown = "a\\n####\\x1b[2J\\xff";
  const char* const null = nullptr;
  EXPECT_THAT(ReportOf([&] {
                REQUIRE(false, "x\n" << name << ' ' << name.c_str() << null << Vexa::Verbatim("y\n") << 1.5
                                     << ' ' << 123456.7 << ' ' << 1000000.5 << ' ' << std::setprecision(2) << 1000000.5);
              }),
              HasSubstr(")\nx\n" + shown + ' ' + shown +
                        "y\n1.5 123456.7 1.0000005e+06 1e+06\nObject '" + shown + "' of file '" +
                        shown + "'\n###"));
}

// A report of shared code leads to where the condition stands, too.
TEST(RequireTest, TellsTheInnermostLabelAndContext) {
  const std::string none;
  const std::string dataset = "/a.dat";
  const std::string file = "x.h5";
  const std::string line = std::to_string(sLineInShared);
  const std::string shared = " (line " + line + ")\nshared\n";
  const std::string place = " (RequireTest.cpp:" + line + ")\n###";
  const Vexa::ReportAs caller("Outer");
  const Vexa::ReportContext context(none, file);
  const auto report = [&](const char* label) {
    const Vexa::ReportAs inner(label);
    const Vexa::ReportContext object(dataset, file);
    return ReportOf(Shared);
  };
  EXPECT_THAT(report("Inner"), HasSubstr("\n#### 1 < 0  violated\n#### Inner" + shared +
                                         "Object '/a.dat' of file 'x.h5'" + place));
  EXPECT_THAT(report("../RequireTest"), HasSubstr("Object '/a.dat' of file 'x.h5'\n###"));
  EXPECT_THAT(ReportOf(Shared), HasSubstr("#### Outer" + shared + "File 'x.h5'"));
}

}  // namespace
