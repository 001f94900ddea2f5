// A program that defines no list: every class that is linked in registers itself.
#include <gmock/gmock.h>

#include "Utils/Factory/TestShapes.hpp"

template struct Factory::Register<Circle>;
template struct Factory::Register<Square>;

namespace {

using testing::ElementsAre;

// A second base class has a registry of its own, and another signature.
struct Animal : Factory::EnableCreation<Animal> {};
struct Cat : Animal, Factory::Register<Cat> {
  static std::string ClassID() { return "circle"; }
  static std::string Help() { return ""; }
};

}  // namespace

template struct Factory::Register<Cat>;

namespace {

TEST(FactoryTest, CreatesWithTheArgumentsOfTheBaseClass) {
  const std::unique_ptr<Shape> shape = Shape::Create("circle", "heading", "c", true, 3);
  EXPECT_EQ(shape->Describe(), "c filled 3");
  EXPECT_EQ(shape->MyClassID(), "circle");
  EXPECT_EQ(Animal::Create("circle", "")->MyClassID(), "circle");
}

TEST(FactoryTest, EveryClassRegistersWithItsBase) {
  const Factory::FactoryBackbone& shapes = Shape::Registry();
  EXPECT_THAT(shapes.RegisteredClassIDs(), ElementsAre("circle", "square"));
  EXPECT_THAT(shapes.DeprecatedClassIDs(), ElementsAre("ellipse"));
  EXPECT_TRUE(shapes.KeyIsDeprecated("ellipse"));
  EXPECT_FALSE(shapes.KeyExists("ellipse"));
  EXPECT_EQ(shapes.Help(), "circle\nRound.\nsquare\nNot round.\n");
  EXPECT_THAT(Animal::Registry().RegisteredClassIDs(), ElementsAre("circle"));
}

}  // namespace
