#include "Utils/Factory/FactoryBackbone.hpp"

#include <gmock/gmock.h>

#include "Utils/ErrorHandling/TestSupport/ReportOf.hpp"

namespace {

using testing::HasSubstr;

void MakeA() {}
void MakeB() {}

// What a retrieval that fails writes to standard error.
std::string ReportOfRetrieve(const Factory::FactoryBackbone& registry, const std::string& id) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(ReportOf([&] { registry.Retrieve(id, "The heading"); }), "");
  return testing::internal::GetCapturedStderr();
}

TEST(FactoryBackboneTest, FindsExactlyTheRegistered) {
  Factory::FactoryBackbone registry;
  EXPECT_THAT(ReportOfRetrieve(registry, "x"),
              HasSubstr("Known ClassIDs:\n-- no classes registered --\n-- LIKELY FIX:"));
  registry.Register("b", MakeB, "Makes b.", "Letters");
  registry.Register("a", MakeA, "Makes a.\n", "Letters");
  registry.Register("B", MakeB, "Makes B.", "Letters");
  EXPECT_EQ(registry.Retrieve("a", ""), MakeA);
  EXPECT_EQ(registry.Retrieve("b", ""), MakeB);
  for (const std::string unknown : {"", "A", "aa", "c"}) {
    EXPECT_THAT(ReportOfRetrieve(registry, unknown + "\n"),
                HasSubstr("###\nThe heading\nClassID '" + unknown +
                          "\\n' not found. Known ClassIDs:\nB\na\nb\n###"));
  }
  for (const char* id : {"help", "-Help", "HELPME"}) {
    EXPECT_THAT(ReportOfRetrieve(registry, id),
                HasSubstr("Documentation:\nB\nMakes B.\na\nMakes a.\nb\nMakes b.\n###"));
  }
  registry.Register("helper", MakeA, "", "Letters");
  EXPECT_EQ(registry.Retrieve("helper", ""), MakeA);
  EXPECT_EXIT(registry.Register("a", MakeB, "", ""), testing::ExitedWithCode(255),
              "Trying to register ID=a for the second time!");
  EXPECT_EQ(Factory::FormatRegisteredClassIDs(MyVector<MyVector<std::string>>{{"b", "a"}, {"c"}}),
            "b\na\nc\n");
}

}  // namespace
