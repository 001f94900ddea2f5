#include "Utils/Factory/FactoryBackbone.hpp"

#include <gmock/gmock.h>

#include <iostream>
#include <sstream>

#include "Utils/ErrorHandling/CodeError.hpp"

namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::HasSubstr;

void MakeA() {}
void MakeB() {}

// What a retrieval that fails writes to standard error.
std::string ReportOfRetrieve(const Factory::FactoryBackbone& registry, const std::string& id) {
  std::ostringstream text;
  std::streambuf* buffer = std::cerr.rdbuf(text.rdbuf());
  EXPECT_THROW(registry.Retrieve(id, "The heading"), CodeError);
  std::cerr.rdbuf(buffer);
  return text.str();
}

class FactoryBackboneTest : public testing::Test {
 protected:
  FactoryBackboneTest() {
    mRegistry.Register("b", MakeB, "Makes b.", "Letters");
    mRegistry.Register("a", MakeA, "Makes a.\n", "Letters");
    mRegistry.Register("B", MakeB, "Makes B.", "Letters");
  }
  Factory::FactoryBackbone mRegistry;
};

TEST_F(FactoryBackboneTest, FindsExactlyTheRegistered) {
  EXPECT_EQ(mRegistry.Retrieve("a", ""), MakeA);
  EXPECT_EQ(mRegistry.Retrieve("b", ""), MakeB);
  EXPECT_TRUE(mRegistry.KeyExists("B"));
  for (const char* unknown : {"", "A", "aa", "c"}) {
    EXPECT_FALSE(mRegistry.KeyExists(unknown)) << unknown;
  }
  EXPECT_THAT(mRegistry.RegisteredClassIDs(), ElementsAre("B", "a", "b"));
}

TEST_F(FactoryBackboneTest, UnknownIDListsTheKnown) {
  EXPECT_EQ(ReportOfRetrieve(mRegistry, "x"),
            "##########################   ERROR   ###########################\n"
            "The heading\n"
            "ClassID 'x' not found. Known ClassIDs:\n"
            "B\na\nb\n"
            "################################################################\n");
  EXPECT_THAT(ReportOfRetrieve(Factory::FactoryBackbone(), "x"),
              HasSubstr("Known ClassIDs:\n-- no classes registered --\n-- LIKELY FIX:"));
}

TEST_F(FactoryBackboneTest, AskingForHelpListsDocumentation) {
  for (const char* id : {"help", "-Help", "HELPME"}) {
    EXPECT_EQ(ReportOfRetrieve(mRegistry, id),
              "Known ClassIDs & Documentation:\nB\nMakes B.\na\nMakes a.\nb\nMakes b.\n"
              "################################################################\n");
  }
  mRegistry.Register("helper", MakeA, "", "Letters");
  EXPECT_EQ(mRegistry.Retrieve("helper", ""), MakeA);
}

TEST_F(FactoryBackboneTest, SecondRegistrationEndsTheProcess) {
  EXPECT_EXIT(mRegistry.Register("a", MakeB, "", ""), ExitedWithCode(255),
              "^##########################   ERROR   ###########################\n"
              "Trying to register ID=a for the second time!\n"
              "################################################################\n$");
}

}  // namespace
