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
void CheckNothingIsLost(const CommandLineParser& parser, const std::vector<std::string>& given) {
  MyVector<std::string> plain = parser.GetAllArguments();
  auto nextPlain = plain.begin();
  const auto endOfOptions = std::find(given.begin(), given.end(), "--");
  for (auto it = given.begin(); it != given.end(); ++it) {
    const std::string name = it < endOfOptions && it->starts_with('-') ? it->substr(1) : "";
    if (it == endOfOptions) {
      continue;
    }
    if (name.empty()) {
      FUZZ_CHECK(nextPlain != plain.end() && *nextPlain++ == *it, *it);
    } else if (IsBoolean(name)) {
      FUZZ_CHECK(parser.Get<bool>(name, false), name);
    } else if (name.starts_with("no-") && IsBoolean(name.substr(3))) {
      FUZZ_CHECK(!parser.Get<bool>(name.substr(3), true), name);
    } else {
      FUZZ_CHECK(++it < endOfOptions, name);
      const std::string value = RemoveLeadingAndTrailingWhitespace(*it);
      FUZZ_CHECK(parser.Get<std::string>(name) == value, name);
    }
  }
  FUZZ_CHECK(nextPlain == plain.end(), *nextPlain);
  FUZZ_CHECK(Fuzz::Succeeds([&] { parser.TerminateIfThereAreUnusedOptions(); }), "unused");
}

}  // namespace

void Fuzz::Target(std::string_view input) {
  std::string text = "Kelmor\n" + std::string(input);
  std::replace(text.begin(), text.end(), '\0', '\n');
  std::istringstream lines(text);
  std::vector<std::string> arguments;
  for (std::string line; std::getline(lines, line);) {
    if (line == "-h" || line == "-help") {
      return;  // asks for help, which ends the process
    }
    arguments.push_back(line);
  }
  std::vector<char*> argv;
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
    CheckNothingIsLost(parser, {arguments.begin() + 1, arguments.end()});
  });
}
