// The class registry: which classes can be created from a text, their class ID, one registry per
// base class. Register.hpp enters classes into it before main(), EnableCreation.hpp creates
// objects through it.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "Utils/Containers/MyVector.hpp"

#pragma GCC visibility push(default)

namespace Factory {

/// A creation function whatever its signature is; FunctionFor<Derived>() names that of a class.
using CreateFunction = void (*)();

/// Whether the class of this creation function is to stay out of the registry. Each executable
/// defines it, in a source file of its own and not in a library, and so decides which of the
/// classes that are linked in can be created by name:
///
///   bool Factory::ShouldInhibitFactoryRegistration(CreateFunction function) {
///     static const CreateFunction registered[] = {FunctionFor<H5_Objects::Dir>(),
///                                                 FunctionFor<H5_Objects::Dat>()};
///     return std::find(std::begin(registered), std::end(registered), function) ==
///            std::end(registered);
///   }
///
/// It is called before main(), in no particular order with other static initialisers, hence the
/// local list. A program without a definition of its own registers every class.
bool ShouldInhibitFactoryRegistration(CreateFunction function);

/// The registry of one base class. IDs are compared byte by byte; lists are in ascending order.
class FactoryBackbone {
 public:
  /// Enters a class, unless ShouldInhibitFactoryRegistration() tells not to; returns whether it is
  /// entered. `title` names the registry to people. An ID that is taken ends the process with
  /// "Trying to register ID=... for the second time!".
  bool Register(const std::string& id, CreateFunction function, const std::string& help,
                const std::string& title);
  /// Notes an ID under which a class was known earlier. Nothing can be created from it.
  void RegisterDeprecated(const std::string& id);

  /// The creation function of the class. If the ID is unknown, reports `heading` and all that are
  /// known to MyErr, with their help if the ID asks for "help", and throws an empty CodeError.
  CreateFunction Retrieve(std::string_view id, const std::string& heading) const;

  bool KeyExists(std::string_view id) const { return mEntries.contains(id); }
  bool KeyIsDeprecated(std::string_view id) const { return mDeprecated.contains(id); }
  MyVector<std::string> RegisteredClassIDs() const;
  MyVector<std::string> DeprecatedClassIDs() const;
  /// Each ID with its help.
  std::string Help() const;

 private:
  struct Entry {
    CreateFunction mFunction;
    std::string mHelp;
  };

  std::map<std::string, Entry, std::less<>> mEntries;  // by ID
  std::set<std::string, std::less<>> mDeprecated;
  std::string mTitle;
};

/// Writes IDs for a message, one a line, or advice if there is none.
std::string FormatRegisteredClassIDs(const MyVector<std::string>& ids);
/// Writes the IDs of several registries together.
std::string FormatRegisteredClassIDs(const MyVector<MyVector<std::string>>& lists);

}  // namespace Factory

#pragma GCC visibility pop
