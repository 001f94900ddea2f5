// A program with a list of its own, which wins over the library's default.
#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>

#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/Factory/TestShapes.hpp"

template struct Factory::Register<Circle>;
template struct Factory::Register<Square>;

bool Factory::ShouldInhibitFactoryRegistration(CreateFunction function) {
  static const CreateFunction registered[] = {FunctionFor<Square>()};
  return std::find(std::begin(registered), std::end(registered), function) == std::end(registered);
}

namespace {

TEST(FactoryListTest, OnlyListedClassesRegister) {
  const Factory::FactoryBackbone& shapes = Shape::Registry();
  EXPECT_THAT(shapes.RegisteredClassIDs(), testing::ElementsAre("square"));
  EXPECT_TRUE(shapes.DeprecatedClassIDs().empty());
  EXPECT_FALSE(Factory::Register<Circle>::mregistered_);
  EXPECT_EQ(Shape::Create("square", "", "s", false, 0)->MyClassID(), "square");
  EXPECT_THROW(Shape::Create("circle", "", "c", false, 0), CodeError);
}

}  // namespace
