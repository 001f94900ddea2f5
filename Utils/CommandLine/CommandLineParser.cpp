#include "Utils/CommandLine/CommandLineParser.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <vector>

#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/ErrorHandling/SigpipeHeldBack.hpp"
#include "Utils/Process/Printable.hpp"
#include "Utils/Process/RunInformation.hpp"
#include "Utils/StringParsing/SimpleConvert.hpp"

namespace {

// "-" and negative numbers begin with '-' as well, but nobody calls an option so.
bool LooksLikeOptionKey(const std::string& argument) {
  bool isNumber = false;
  StringConversion::ConvertTo<double>(argument, isNumber);
  return argument.starts_with('-') && argument != "-" && !isNumber;
}

}  // namespace

CommandLineParser::CommandLineParser(int argc, char** argv, const std::string& help,
                                     const MyVector<std::string>& booleanOptions)
    : mHelpText("============ help-text supplied by program ============\n" + help +
                "\n=======================================================\n" +
                InfoAtRuntime(argc, argv)) {
  const std::vector<std::string> given(argv + std::min(argc, 1), argv + argc);
  if (std::any_of(given.begin(), given.end(),
                  [](const std::string& s) { return s == "-h" || s == "-help"; })) {
    std::cout << mHelpText << std::endl;
    std::exit(0);
  }

  const auto endOfOptions = std::find(given.begin(), given.end(), "--");
  std::vector<std::string> opts(given.begin(), endOfOptions);
  ReadBooleanOptions(opts, booleanOptions);

  std::vector<std::string> arguments;
  for (auto iter = opts.begin(); iter != opts.end(); ++iter) {
    if (LooksLikeOptionKey(*iter)) {
      const std::string key = iter->substr(1);
      REQUIRE(!key.starts_with('-'), "Don't know what to do with option '" << *iter << "'");
      ++iter;
      REQUIRE(iter != opts.end(), "No value for option-key '" << key << "' specified.\n");
      REQUIRE((*iter)[0]!='-', "For key '" << key << "', the option value '" << *iter
                                           << "' begins with '-'.\nIf this is intended, use '-"
                                           << key << " \" " << *iter << "\"' instead.\n");
      REQUIRE(!mKeyValueMap.KeyExists(key), "Trying to define option-key '"
                                                << key << "' the second time.\n");
      mKeyValueMap.Insert(key, *iter);
    } else {
      const auto iter2 = iter;
      REQUIRE((*iter2)[0]!='-', "Argument '"
                                    << *iter2 << "' begins unexpectedly with '-'.\n"
                                    << "Probably there's a typo earlier in the command line. If "
                                       "the \n'-' is intended, then specify explicitly '--'.\n");
      arguments.push_back(*iter2);
    }
  }
  if (endOfOptions != given.end()) {
    arguments.insert(arguments.end(), endOfOptions + 1, given.end());
  }

  mArguments = MyVector<std::string>(arguments);
  mArgWasUsed.assign(MV::Size(arguments.size()), false);
}

void CommandLineParser::ReadBooleanOptions(std::vector<std::string>& opts,
                                           const MyVector<std::string>& booleanOptions) {
  const std::array<const char*, 3> forms[] = {{"-", "true", "for a second time"},
                                              {"-no-", "false", "the second time"}};
  for (const std::string& s : booleanOptions) {
    for (const auto& [prefix, value, again] : forms) {
      for (std::size_t n = std::erase(opts, prefix + s); n > 0; --n) {
        REQUIRE(!mKeyValueMap.KeyExists(s), "Trying to define boolean option '" << s << "' " << again
                                                                               << ".\n");
        mKeyValueMap.Insert(s, value);
      }
    }
  }
}

bool CommandLineParser::KeyExists(const std::string& key) const {
  return mKeyValueMap.KeyExists(key);
}

template <class T>
T CommandLineParser::Get(const std::string& key, const T& defaultValue) const {
  return KeyExists(key) ? Get<T>(key) : defaultValue;
}

template <class T>
T CommandLineParser::Get(const std::string& key) const {
  if (!KeyExists(key)) {
    {
      const SigpipeHeldBack guard;
      std::cerr << "ERROR in CommandLineParser\n"
                << "Option-key '" << key << "' not given on command line.\n"
                << mHelpText << "\n";
    }
    MyAbort();
  }
  mKeyWasUsed[key] = true;
  const std::string& given = mKeyValueMap[key];
  T value{};
  SimpleConvert(given,
                "Option-key '" + key + "' was given the value '" + Vexa::Printable(given) + "'.\n",
                value);
  return value;
}

MyVector<std::string> CommandLineParser::GetAllArguments() const {
  return GetAllArgumentsAfterTheFirstN(0);
}

MyVector<std::string> CommandLineParser::GetAllArgumentsAfterTheFirstN(unsigned n) const {
  REQUIRE(n<=mArguments.size(), "All Arguments but the first "
                                    << n << " were requested.\nBut there are only "
                                    << mArguments.size() << " arguments.\n");
  std::fill(mArgWasUsed.begin() + n, mArgWasUsed.end(), true);
  return MyVector<std::string>(MV::Sequence(mArguments.begin() + n, mArguments.size() - n));
}

void CommandLineParser::TerminateIfThereAreUnusedOptions() const {
  for (std::ptrdiff_t i = 0; i < mArguments.Size(); ++i) {
    REQUIRE(mArgWasUsed[i], "The " << i << "-th Argument ('" << mArguments[i]
                                   << "') was not used.\n");
  }
  for (const auto& [it, value] : mKeyValueMap) {
    REQUIRE(mKeyWasUsed[it], "Option-key '" << it << "' was not used.\n");
  }
}

std::vector<std::pair<std::string, std::string>> CommandLineParser::UnusedOptions() const {
  std::vector<std::pair<std::string, std::string>> unused;
  for (const auto& [key, value] : mKeyValueMap) {
    if (!mKeyWasUsed[key]) {
      unused.emplace_back(key, value);
    }
  }
  return unused;
}

#define INSTANTIATE(T)                                            \
  template T CommandLineParser::Get<T>(const std::string&) const; \
  template T CommandLineParser::Get<T>(const std::string&, const T&) const;
INSTANTIATE(bool)
INSTANTIATE(double)
INSTANTIATE(std::string)
#undef INSTANTIATE
