// The input is the arguments of a program, each ended by a null character or a newline. Whatever is
// read must be all that was given, and nothing else.
#include <algorithm>
#include <sstream>
#include <vector>

#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/CommandLine/CommandLineParser.hpp"
#include "Utils/StringParsing/SplitStrings.hpp"

namespace {

const MyVector<std::string> sBooleanOptions{"v", "NoWipe", "NoGzip"};

bool IsBoolean(const std::string& name) {
  return std::count(sBooleanOptions.begin(), sBooleanOptions.end(), name) > 0;
}

// Every argument was a plain one, an option, an option's value, or the "--".
void CheckNothingIsLost(const CommandLineParser& parser, const std::vector<std::string>& given) {
  std::vector<std::string> plain;
  const auto endOfOptions = std::find(given.begin(), given.end(), "--");
  for (auto it = given.begin(); it != endOfOptions; ++it) {
    const std::string name = it->starts_with('-') ? it->substr(1) : "";
    if (name.empty()) {
      plain.push_back(*it);
    } else if (IsBoolean(name)) {
      FUZZ_CHECK(parser.Get<bool>(name, false), name);
    } else if (name.starts_with("no-") && IsBoolean(name.substr(3))) {
      FUZZ_CHECK(!parser.Get<bool>(name.substr(3), true), name);
    } else {
      FUZZ_CHECK(++it != endOfOptions, name);
      const std::string value = RemoveLeadingAndTrailingWhitespace(*it);
      FUZZ_CHECK(parser.Get<std::string>(name) == value, name);
    }
  }
  plain.insert(plain.end(), endOfOptions + (endOfOptions != given.end()), given.end());
  FUZZ_CHECK(parser.GetAllArguments() == MyVector<std::string>(plain), "plain arguments");
  FUZZ_CHECK(Fuzz::Succeeds([&] { parser.TerminateIfThereAreUnusedOptions(); }), "unused");
}

}  // namespace

void Fuzz::Target(std::string_view input) {
  std::string text(input);
  std::replace(text.begin(), text.end(), '\0', '\n');
  std::istringstream lines(text);
  std::vector<std::string> arguments;
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
    const CommandLineParser parser(static_cast<int>(argv.size()), argv.data(), "", sBooleanOptions);
    CheckNothingIsLost(parser, arguments);
  });
}
