// What a base class inherits so that objects of its registered classes can be created from their
// class IDs. The arguments after Base are those of the constructors:
//
//   class H5_Object : public Factory::EnableCreation<H5_Object, const std::string&, bool, int> {…};
//   std::unique_ptr<H5_Object> p = H5_Object::Create("dat", "Creating x.dat", "x.dat", true, 0);
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "Utils/Factory/FactoryBackbone.hpp"

#pragma GCC visibility push(default)

namespace Factory {

/// The class ID of an object, through a reference to any of its bases. Shared, as a virtual base,
/// by EnableCreation, which gives it to the base class, and Register, which implements it.
class HasClassID {
 public:
  virtual ~HasClassID() = default;
  virtual std::string MyClassID() const = 0;
};

template <class Base, class... Args>
class EnableCreation : public virtual HasClassID {
 public:
  /// A class derived from Base finds its creation interface by this name.
  using CreationInterface = EnableCreation;
  using CreationBase = Base;

  /// The registry of Base, made on first use, so that classes can register in any order of static
  /// initialisation. There is one for each base class and list of constructor arguments.
  static FactoryBackbone& Registry() {
    static FactoryBackbone backbone;
    return backbone;
  }

  /// Creates a new object of the class that is registered for Base under this ID. Fails like
  /// FactoryBackbone::Retrieve(), with `heading` at the top of the report.
  static std::unique_ptr<Base> Create(std::string_view id, const std::string& heading,
                                      Args... args) {
    const CreateFunction function = Registry().Retrieve(id, heading);
    return std::unique_ptr<Base>(
        reinterpret_cast<Base* (*)(Args...)>(function)(std::forward<Args>(args)...));
  }

  /// The creation function of Derived. The caller owns what it returns.
  template <class Derived>
  static Base* CreateHelper(Args... args) {
    return new Derived(std::forward<Args>(args)...);
  }
};

/// Returns &EnableCreation<Base, Args...>::CreateHelper<Derived> in the form that the registry
/// keeps.
template <class Derived>
CreateFunction FunctionFor() {
  return reinterpret_cast<CreateFunction>(
      &Derived::CreationInterface::template CreateHelper<Derived>);
}

}  // namespace Factory

#pragma GCC visibility pop
