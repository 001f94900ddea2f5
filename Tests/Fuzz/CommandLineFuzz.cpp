// The input is the arguments of Kelmor, each ended by a null character or a newline. Whatever is
// read must be all that was given, and nothing else.
#include <algorithm>
#include <vector>

#include "Executables/Kelmor/Options.hpp"
#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/CommandLine/CommandLineParser.hpp"
#include "Utils/StringParsing/SplitStrings.hpp"

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

bool IsBoolean(const std::string& name) {
  return std::find(BooleanOptions().begin(), BooleanOptions().end(), name) !=
         BooleanOptions().end();
}

// Every argument was a plain one, an option, an option's value, or the "--".
void CheckNothingIsLost(const CommandLineParser& parser,
                        const std::vector<std::string>& arguments) {
  const auto endOfOptions = std::find(arguments.begin(), arguments.end(), "--");
  std::vector<std::string> plain;
  std::string key;  // that waits for its value
  for (auto it = arguments.begin(); it != endOfOptions; ++it) {
    const std::string name = it->starts_with('-') ? it->substr(1) : "";
    if (IsBoolean(name)) {
      FUZZ_CHECK(parser.Get<bool>(name, false), name);
    } else if (name.starts_with("no-") && IsBoolean(name.substr(3))) {
      FUZZ_CHECK(!parser.Get<bool>(name.substr(3), true), name);
    } else if (it->starts_with('-')) {
      key = *it;
    } else if (key.empty()) {
      plain.push_back(*it);
    } else {
      const std::string value = RemoveLeadingAndTrailingWhitespace(*it);
      FUZZ_CHECK(parser.Get<std::string>(key.substr(1)) == value, key);
      key = "";
    }
  }
  FUZZ_CHECK(key.empty(), key);
  plain.insert(plain.end(), endOfOptions + (endOfOptions == arguments.end() ? 0 : 1),
               arguments.end());
  FUZZ_CHECK(parser.GetAllArguments() == MyVector<std::string>(plain), "plain arguments");
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
