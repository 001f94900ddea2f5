#include "Utils/ErrorHandling/Require.hpp"

#include <gmock/gmock.h>

#include <cstdlib>

#include "Utils/ErrorHandling/ReportOf.hpp"

#define EXPANDED_BY_THE_PREPROCESSOR 1

namespace {

using testing::HasSubstr;

void Shared(int value, std::source_location where = std::source_location::current()) {
  REQUIRE_AT(where, value < 0, "shared");
}

TEST(RequireTest, WholeReport) {
  setenv("VEXA_NO_BACKTRACE", "1", 1);
  EXPECT_EQ(ReportOf([] { RequireFail("x>0", "Foo", 42, "x=-1"); }),
            "\n#######################  REQUIRE  FAILED  #######################\n"
            "#### x>0  violated\n"
            "#### Foo (line 42)\n"
            "x=-1\n"
            "#################################################################\n"
            "\n");
}

TEST(RequireTest, NamesConditionAsWrittenSourceAndLine) {
  const int x = -1;
  const auto fail = [x] { REQUIRE(x>EXPANDED_BY_THE_PREPROCESSOR, "x=" << x << '!'); };
  const auto failElsewhere = [] { Shared(1); };
  const int line = __LINE__ - 2;
  EXPECT_THAT(ReportOf(fail),
              HasSubstr("\n#### x>EXPANDED_BY_THE_PREPROCESSOR  violated\n#### RequireTest (line " +
                        std::to_string(line) + ")\nx=-1!\n###"));
  EXPECT_THAT(ReportOf(failElsewhere),
              HasSubstr("\n#### value < 0  violated\n#### RequireTest (line " +
                        std::to_string(line + 1) + ")\nshared\n"));
  EXPECT_THAT(ReportOf([] { REQUIRE_LABELLED("Some/Label", 7, false, ""); }),
              HasSubstr("\n#### false  violated\n#### Some/Label (line 7)\n\n###"));
}

TEST(RequireTest, MessageIsBuiltOnFailureOnly) {
  int built = 0;
  REQUIRE(true, ++built);
  EXPECT_EQ(built, 0);
}

TEST(RequireTest, InnermostContextFollowsTheMessage) {
  const std::string none;
  const std::string dataset = "/a.dat";
  const std::string file = "x.h5";
  const auto fail = [] { REQUIRE(false, "message"); };
  const ReportContext outer(none, file);
  EXPECT_THAT(ReportOf(fail), HasSubstr(")\nmessage\nFile 'x.h5'\n###"));
  {
    const ReportContext inner(dataset, file);
    EXPECT_THAT(ReportOf(fail), HasSubstr(")\nmessage\nObject '/a.dat' of file 'x.h5'\n###"));
    EXPECT_THAT(ReportOf([] { REQUIRE(false, "with newline\n"); }),
                HasSubstr(")\nwith newline\nObject '/a.dat' of file 'x.h5'\n###"));
  }
  EXPECT_EQ(ReportContext::Current(), "File 'x.h5'");
}

}  // namespace
