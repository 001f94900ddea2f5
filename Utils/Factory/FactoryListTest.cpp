// A program with a list of what it registers, which wins over the library's default.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "Utils/Factory/EnableCreation.hpp"
#include "Utils/Factory/FactoryReporter.hpp"
#include "Utils/Factory/Register.hpp"

struct Shape : Factory::EnableCreation<Shape, const std::string&, int> {
  explicit Shape(const std::string& text) : mText(text) {}
  std::string mText;
};

struct Circle : Shape, Factory::Register<Circle> {
  static std::string ClassID() { return "circle"; }
  static std::string Help() { return "Round."; }
  static MyVector<std::string> DeprecatedIDs() { return {"ellipse", "ellipse"}; }
  Circle(const std::string& name, int radius) : Shape(name + std::to_string(radius)) {}
};

struct Square : Shape, Factory::Register<Square> {
  static std::string ClassID() { return "square"; }
  static std::string Help() { return ""; }
  static MyVector<std::string> DeprecatedIDs() { return {"box"}; }
  Square(const std::string& name, int) : Shape(name) {}
};

template struct Factory::Register<Circle>;
template struct Factory::Register<Square>;

bool Factory::ShouldInhibitFactoryRegistration(CreateFunction function) {
  return function != FunctionFor<Circle>();
}

TEST(FactoryListTest, OnlyListedClassesRegister) {
  EXPECT_THAT(Shape::Registry().RegisteredClassIDs(), testing::ElementsAre("circle"));
  EXPECT_THAT(Shape::Registry().DeprecatedClassIDs(), testing::ElementsAre("ellipse"));
  EXPECT_TRUE(Shape::Registry().KeyIsDeprecated("ellipse"));
  EXPECT_FALSE(Factory::Register<Square>::mregistered_);
  // Each class and library that is used stands in a record once, and again when that is begun anew.
  const std::string path = testing::TempDir() + "vexa-record-" + std::to_string(getpid());
  for (int run = 0; run < 2; ++run) {
    FactoryReporter::EnableReporting(path);
    EXPECT_EQ(Shape::Create("circle", "heading", "c", 3)->mText, "c3");
    EXPECT_EQ(Shape::Create("circle", "heading", "c", 4)->MyClassID(), "circle");
    FactoryReporter::ReportLibrary("Shapes");
  }
  const std::string once = "class: Shape circle\nlibrary: Shapes\n";
  EXPECT_EQ((std::ostringstream() << std::ifstream(path).rdbuf()).str(), once + once);
  std::remove(path.c_str());
}
