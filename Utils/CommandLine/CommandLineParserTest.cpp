#include "Utils/CommandLine/CommandLineParser.hpp"

#include <gmock/gmock.h>

#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "Utils/ErrorHandling/TestSupport/ReportOf.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

CommandLineParser Parsed(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "program");
  std::vector<char*> argv;
  for (std::string& argument : arguments) {
    argv.push_back(argument.data());
  }
  return CommandLineParser(static_cast<int>(argv.size()), argv.data(), "the help", {"v", "b"});
}

TEST(CommandLineParser, OptionsAndArgumentsInAnyOrder) {
  const CommandLineParser parser = Parsed({"a", "-v", "b", "-o", " -out.h5", "", "-no-b", "-x",
                                           "1e3/2", "c", "-y", " -1", "--", "-d", "--", "-v"});
  EXPECT_THAT(parser.GetAllArguments(), ElementsAre("a", "b", "", "c", "-d", "--", "-v"));
  EXPECT_TRUE(parser.Get<bool>("v", false));
  EXPECT_FALSE(parser.Get<bool>("b", true));
  EXPECT_EQ(parser.Get<std::string>("o"), "-out.h5");
  EXPECT_EQ(parser.Get<double>("x", 1.0), 500.0);
  EXPECT_EQ(parser.Get<double>("y", 1.0), -1.0);
  EXPECT_EQ(parser.Get<double>("absent", 1.5), 1.5);
  parser.TerminateIfThereAreUnusedOptions();
}

TEST(CommandLineParser, WhatCannotBeReadIsReported) {
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{"-v", "a", "-v"}, "Trying to define boolean option 'v' for a second time.\n"},
      {{"-v", "-no-v"}, "Trying to define boolean option 'v' the second time.\n"},
      {{"-o", "a", "-o", "b"}, "Trying to define option-key 'o' the second time.\n"},
      {{"a", "-o"}, "No value for option-key 'o' specified.\n"},
      {{"-o", "--", "a"}, "No value for option-key 'o' specified.\n"},
      {{"-o", "-v"}, "No value for option-key 'o' specified.\n"},
      {{"-x", "-1"}, "For key 'x', the option value '-1' begins with '-'.\n"},
      {{"a", "-1"}, "Argument '-1' begins unexpectedly with '-'.\n"},
      {{"-", "a"}, "Argument '-' begins unexpectedly with '-'.\n"},
      {{"--o", "a"}, "Don't know what to do with option '--o'"},
      {{"-x", "1,5\n"}, "\nOption-key 'x' was given the value '1,5\\n'.\n"}};
  for (const auto& [arguments, message] : cases) {
    EXPECT_THAT(ReportOf([&] { Parsed(arguments).Get<double>("x", 0.0); }), HasSubstr(message));
  }
}

TEST(CommandLineParser, WhatWasNotUsedIsReported) {
  const CommandLineParser parser = Parsed({"-x", "1", "-v", "a", "b", "c"});
  const auto unused = [&] { parser.TerminateIfThereAreUnusedOptions(); };
  EXPECT_THAT(parser.GetAllArgumentsAfterTheFirstN(2), ElementsAre("c"));
  EXPECT_THAT(ReportOf(unused), HasSubstr("The 0-th Argument ('a') was not used.\n"));
  parser.GetAllArguments();
  parser.Get<bool>("v", false);
  EXPECT_THAT(ReportOf(unused), HasSubstr("Option-key 'x' was not used.\n"));
  EXPECT_THAT(parser.GetAllArgumentsAfterTheFirstN(3), ElementsAre());
  EXPECT_THAT(ReportOf([&] { parser.GetAllArgumentsAfterTheFirstN(4); }),
              HasSubstr("But there are only 3 arguments.\n"));
}

TEST(CommandLineParserDeathTest, TheHelpEndsTheProcess) {
  const std::string help =
      "=== help-text supplied by program =+\nthe help\n=+\nCommand line: program ";
  for (const char* key : {"-h", "-help"}) {
    const auto onStandardError = [key] {
      std::cout.rdbuf(std::cerr.rdbuf());
      Parsed({"-o", "-o", key});  // before any other check
    };
    EXPECT_EXIT(onStandardError(), testing::ExitedWithCode(0), help);
  }
  EXPECT_EXIT(Parsed({"a"}).Get<std::string>("o"), testing::ExitedWithCode(255),
              "Option-key 'o' not given on command line.\n.*" + help);
}

}  // namespace
