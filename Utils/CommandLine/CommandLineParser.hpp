// CommandLineParser takes a program's command line apart into options and plain arguments, answers
// typed queries, keeps track of what was used, and shows the help text when asked for it.
//
//   program -o out.h5 -v a.h5 -skip '*.txt' b.h5 -- -c.h5
//
// - "-b" and "-no-b" of a known boolean option b set it to true and false, wherever they stand;
//   they take no value.
// - Any other "-key" takes the next argument as its value. The value must not begin with '-'; one
//   that is meant to is written with a blank in front, as in -x " -1": conversions trim it.
// - All the rest are plain arguments, between the options too. After "--" everything is.
// - A lone "-", a number such as "-1" and "--key" are no option keys, and fail where they stand for
//   one.
// - "-h" or "-help" anywhere prints the help on standard output and exits with status 0.
//
// Each key may be given once. Errors on the command line are REQUIRE failures.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Utils/Containers/MyMap.hpp"
#include "Utils/Containers/MyVector.hpp"

#pragma GCC visibility push(default)

class CommandLineParser {
 public:
  /// The names of the boolean options are without the '-'. The help shows `help` between two
  /// banners, and then how the program was started.
  CommandLineParser(int argc, char** argv, const std::string& help,
                    const MyVector<std::string>& booleanOptions);

  /// Whether the option was given. Does not count as a use.
  bool KeyExists(const std::string& key) const;

  /// The option's value as bool, double or std::string, converted as SimpleConvert does; the
  /// default if it was not given. Marks it used.
  template <class T>
  T Get(const std::string& key, const T& defaultValue) const;

  /// Returns the value of a required option. If it was not given, an error and the help text go to
  /// standard error and the process ends through MyAbort.
  template <class T>
  T Get(const std::string& key) const;

  /// The plain arguments in the order of the command line; marks them used.
  MyVector<std::string> GetAllArguments() const;
  /// Returns all plain arguments but the first n, which do not count as used. Fails if there are
  /// fewer than n.
  MyVector<std::string> GetAllArgumentsAfterTheFirstN(unsigned n) const;

  /// Returns the options that nothing has asked for, each with its value, in the order in which
  /// they were given.
  std::vector<std::pair<std::string, std::string>> UnusedOptions() const;
  /// Fails at the first plain argument, then at the first option, that nothing has asked for.
  void TerminateIfThereAreUnusedOptions() const;

 private:
  /// Takes what sets one of the boolean options out of the arguments.
  void ReadBooleanOptions(std::vector<std::string>& opts,
                          const MyVector<std::string>& booleanOptions);

  std::string mHelpText;
  MyVector<std::string> mArguments;
  MyMap<std::string, std::string> mKeyValueMap;
  mutable std::map<std::string, bool> mKeyWasUsed;  // without those that nothing has asked for yet
  mutable MyVector<bool> mArgWasUsed;
};

#pragma GCC visibility pop
