// What a concrete class inherits, beside its base class, to be found in the registry:
//
//   class Dat : public H5_Object, public Factory::Register<Dat> {
//    public:
//     static std::string ClassID() { return "dat"; }   // creates it
//     static std::string Help();                       // documents it
//     static MyVector<std::string> DeprecatedIDs();    // optional
//     …
//   };
//   template struct Factory::Register<Dat>;            // once, in Dat.cpp: does the registration
//
// A linker drops archive members that nobody refers to, and their registrations with them: a
// library of registered classes is linked whole.
#pragma once

#include <string>
#include <typeinfo>

#include "Utils/ErrorHandling/Backtrace.hpp"
#include "Utils/Factory/EnableCreation.hpp"
#include "Utils/Factory/FactoryBackbone.hpp"

#pragma GCC visibility push(default)

namespace Factory {

/// Derived is complete only where the members are instantiated, not where it inherits this.
template <class Derived>
struct Register : public virtual HasClassID {
  std::string MyClassID() const override { return Derived::ClassID(); }

  /// Whether the class is in the registry.
  static const bool mregistered_;
  /// Whether it has entered deprecated IDs.
  static const bool mDeprecated_;

 private:
  static bool RegisterClass() {
    using Base = typename Derived::CreationBase;
    return Derived::Registry().Register(Derived::ClassID(), FunctionFor<Derived>(), Derived::Help(),
                                        Vexa::Demangle(typeid(Base).name()));
  }

  static bool RegisterDeprecatedIDs() {
    if constexpr (requires { Derived::DeprecatedIDs(); }) {
      if (!ShouldInhibitFactoryRegistration(FunctionFor<Derived>())) {
        for (const std::string& id : Derived::DeprecatedIDs()) {
          Derived::Registry().RegisterDeprecated(id);
        }
        return true;
      }
    }
    return false;
  }
};

template <class Derived>
const bool Register<Derived>::mregistered_ = RegisterClass();
template <class Derived>
const bool Register<Derived>::mDeprecated_ = RegisterDeprecatedIDs();

}  // namespace Factory

#pragma GCC visibility pop
