// For tests: a base class with two registered classes, one of which is known by an older ID too.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "Utils/Factory/EnableCreation.hpp"
#include "Utils/Factory/Register.hpp"

class Shape : public Factory::EnableCreation<Shape, const std::string&, bool, int> {
 public:
  virtual std::string Describe() const = 0;
};

// A layer between the base class and the registered ones.
class NamedShape : public Shape {
 public:
  explicit NamedShape(const std::string& name) : mName(name) {}

 protected:
  std::string mName;
};

class Circle : public NamedShape, public Factory::Register<Circle> {
 public:
  static std::string ClassID() { return "circle"; }
  static std::string Help() { return "Round."; }
  static MyVector<std::string> DeprecatedIDs() { return {"ellipse"}; }

  Circle(const std::string& name, bool isFilled, int radius)
      : NamedShape(name), mIsFilled(isFilled), mRadius(radius) {}
  std::string Describe() const override {
    return mName + (mIsFilled ? " filled " : " open ") + std::to_string(mRadius);
  }

 private:
  bool mIsFilled;
  int mRadius;
};

class Square : public NamedShape, public Factory::Register<Square> {
 public:
  static std::string ClassID() { return "square"; }
  static std::string Help() { return "Not round."; }

  Square(const std::string& name, bool, int) : NamedShape(name) {}
  std::string Describe() const override { return mName; }
};
