// The input is the arguments of Kelmor, each ended by a null character or a newline. Whatever is
// read must be all that was given, and nothing else.
#include <algorithm>
#include <set>
#include <vector>

#include "Executables/Kelmor/Options.hpp"
#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/CommandLine/CommandLineParser.hpp"

namespace {

std::vector<std::string> ArgumentsFrom(std::string_view text) {
  std::vector<std::string> arguments;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(std::string_view("\0\n", 2)), text.size());
    arguments.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return arguments;
}

const MyVector<std::string>& BooleanOptions() {
  static const MyVector<std::string> names{"v", "NoWipe", "NoGzip"};
  return names;
}

// Every argument was a plain one, an option, an option's value, or the "--".
void CheckNothingIsLost(const CommandLineParser& parser,
                        const std::vector<std::string>& arguments) {
  const MyVector<std::string> plain = parser.GetAllArguments();
  std::size_t count = plain.size();
  const auto endOfOptions = std::find(arguments.begin(), arguments.end(), "--");
  count += endOfOptions == arguments.end() ? 0 : 1;

  std::set<std::string> keys;
  for (auto it = arguments.begin(); it != endOfOptions; ++it) {
    if (it->starts_with('-') && parser.KeyExists(it->substr(1))) {
      keys.insert(it->substr(1));
    }
  }
  for (const std::string& name : BooleanOptions()) {
    keys.erase(name);
    if (parser.KeyExists(name)) {
      const bool isSet = parser.Get<bool>(name, false);
      const auto given = std::find(arguments.begin(), endOfOptions, (isSet ? "-" : "-no-") + name);
      FUZZ_CHECK(given != endOfOptions, name);
      ++count;
    }
  }
  for (const std::string& key : keys) {
    const auto value = parser.Get<std::string>(key);
    const auto given = std::find(arguments.begin(), endOfOptions, "-" + key);
    FUZZ_CHECK(given + 1 < endOfOptions, key);
    FUZZ_CHECK(value.empty() || std::any_of(given, endOfOptions,
                                            [&](const std::string& s) {
                                              return s.find(value) != std::string::npos;
                                            }),
               key);
    count += 2;
  }
  FUZZ_CHECK(count == arguments.size(), std::to_string(count) + " arguments are accounted for");

  auto from = arguments.begin();
  for (const std::string& argument : plain) {
    from = std::find(from, arguments.end(), argument);
    FUZZ_CHECK(from != arguments.end(), "'" + argument + "' is out of order");
    ++from;
  }
  FUZZ_CHECK(Fuzz::Succeeds([&] { parser.TerminateIfThereAreUnusedOptions(); }),
             "all was asked for");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> arguments = ArgumentsFrom(Fuzz::Text(data, size));
  if (std::any_of(arguments.begin(), arguments.end(),
                  [](const std::string& s) { return s == "-h" || s == "-help"; })) {
    return 0;  // asks for help, which ends the process
  }
  std::string program = "Kelmor";
  std::vector<char*> argv{program.data()};
  for (std::string& argument : arguments) {
    argv.push_back(argument.data());
  }
  Fuzz::Succeeds([&] {
    const CommandLineParser parser(static_cast<int>(argv.size()), argv.data(), HelpText(),
                                   BooleanOptions());
    Fuzz::Succeeds([&] {
      const Options options(parser, Options::Output::Optional);
      FUZZ_CHECK(options.mDeltaT >= 0, std::to_string(options.mDeltaT));
    });
    CheckNothingIsLost(parser, arguments);
  });
  return 0;
}
