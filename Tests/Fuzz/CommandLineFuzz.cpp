// The input is the arguments of Kelmor, each ended by a null character or a newline. Whatever is
// read must be all that was given, and nothing else.
#include <algorithm>
#include <sstream>
#include <vector>

#include "Executables/Kelmor/HelpText.hpp"
#include "Executables/Series/JoinOptions.hpp"
#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/CommandLine/CommandLineParser.hpp"
#include "Utils/StringParsing/SplitStrings.hpp"

namespace {

const MyVector<std::string> sBooleanOptions{"v", "NoWipe", "NoGzip"};

bool IsBoolean(const std::string& name) {
  return std::count(sBooleanOptions.begin(), sBooleanOptions.end(), name) > 0;
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

void Fuzz::Target(std::string_view input) {
  std::vector<std::string> arguments;
  std::string text(input);
  std::replace(text.begin(), text.end(), '\0', '\n');
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line == "-h" || line == "-help") {
      return;  // asks for help, which ends the process
    }
    arguments.push_back(line);
  }
  std::string program = "Kelmor";
  std::vector<char*> argv{program.data()};
  for (std::string& argument : arguments) {
    argv.push_back(argument.data());
  }
  Succeeds([&] {
    const CommandLineParser parser(static_cast<int>(argv.size()), argv.data(), HelpText(),
                                   sBooleanOptions);
    Succeeds([&] {
      const JoinOptions options(parser, JoinOptions::Output::Optional);
      FUZZ_CHECK(options.mDeltaT >= 0, std::to_string(options.mDeltaT));
    });
    CheckNothingIsLost(parser, arguments);
  });
}
