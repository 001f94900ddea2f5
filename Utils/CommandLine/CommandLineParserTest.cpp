#include "Utils/CommandLine/CommandLineParser.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "Utils/ErrorHandling/ReportOf.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

CommandLineParser Parsed(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "program");
  std::vector<char*> argv;
  std::transform(arguments.begin(), arguments.end(), std::back_inserter(argv),
                 [](std::string& argument) { return argument.data(); });
  return CommandLineParser(static_cast<int>(argv.size()), argv.data(), "the help", {"v", "b"});
}

TEST(CommandLineParser, OptionsAndArgumentsInAnyOrder) {
  const CommandLineParser parser = Parsed(
      {"a", "-v", "b", "-o", "out", "", "-no-b", "-x", "1e3/2", "c", "--", "-d", "--", "-v"});
  EXPECT_THAT(parser.GetAllArguments(), ElementsAre("a", "b", "", "c", "-d", "--", "-v"));
  EXPECT_TRUE(parser.Get<bool>("v", false));
  EXPECT_FALSE(parser.Get<bool>("b", true));
  EXPECT_EQ(parser.Get<std::string>("o"), "out");
  EXPECT_EQ(parser.Get<double>("x", 1.0), 500.0);
  EXPECT_EQ(parser.Get<double>("absent", 1.5), 1.5);
  EXPECT_TRUE(parser.KeyExists("o"));
  EXPECT_FALSE(parser.KeyExists("absent"));
  parser.TerminateIfThereAreUnusedOptions();
}

TEST(CommandLineParser, WhatCannotBeReadIsReported) {
  const struct {
    std::vector<std::string> mArguments;
    const char* mCondition;
    const char* mMessage;
  } cases[] = {
      {{"-v", "a", "-v"},
       "!mKeyValueMap.KeyExists(s)",
       "Trying to define boolean option 'v' for a second time.\n"},
      {{"-v", "-no-v"},
       "!mKeyValueMap.KeyExists(s)",
       "Trying to define boolean option 'v' the second time.\n"},
      {{"-no-v", "-v"},
       "!mKeyValueMap.KeyExists(s)",
       "Trying to define boolean option 'v' the second time.\n"},
      {{"-b", "-b", "-v", "-v"},  // in the order in which the program knows them
       "!mKeyValueMap.KeyExists(s)",
       "Trying to define boolean option 'v' for a second time.\n"},
      {{"-o", "a", "-o", "b"},
       "!mKeyValueMap.KeyExists(key)",
       "Trying to define option-key 'o' the second time.\n"},
      {{"a", "-o"}, "iter != opts.end()", "No value for option-key 'o' specified.\n"},
      {{"-o", "--", "a"}, "iter != opts.end()", "No value for option-key 'o' specified.\n"},
      {{"-o", "-v"}, "iter != opts.end()", "No value for option-key 'o' specified.\n"},
      {{"-x", "-1"},
       "(*iter)[0]!='-'",
       "For key 'x', the option value '-1' begins with '-'.\n"
       "If this is intended, use '-x \" -1\"' instead.\n"},
      {{"a", "-1"},
       "(*iter2)[0]!='-'",
       "Argument '-1' begins unexpectedly with '-'.\n"
       "Probably there's a typo earlier in the command line. If the \n"
       "'-' is intended, then specify explicitly '--'.\n"},
      {{"-", "a"}, "(*iter2)[0]!='-'", "Argument '-' begins unexpectedly with '-'.\n"},
      {{"--o", "a"}, "!key.starts_with('-')", "Don't know what to do with option '--o'"},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(ReportOf([&c] { Parsed(c.mArguments); }),
                HasReport(c.mCondition, "CommandLineParser", c.mMessage));
  }
}

// The way that the report of a value with a '-' shows must work for every type.
TEST(CommandLineParser, ValuesThatBeginWithAMinus) {
  const CommandLineParser parser = Parsed({"-x", " -1", "-o", " -out.h5"});
  EXPECT_EQ(parser.Get<double>("x", 0.0), -1.0);
  EXPECT_EQ(parser.Get<std::string>("o"), "-out.h5");
}

TEST(CommandLineParser, AFailedConversionNamesTheOption) {
  EXPECT_THAT(ReportOf([] {
                Parsed({"-x", "1,5"}).Get<double>("x", 0.0);
              }),
              HasSubstr("\nOption-key 'x' was given the value '1,5'.\n"));
}

TEST(CommandLineParser, WhatWasNotUsedIsReportedOneAtATime) {
  const CommandLineParser parser = Parsed({"-x", "1", "-v", "a", "b", "c"});
  const auto unused = [&] { parser.TerminateIfThereAreUnusedOptions(); };
  EXPECT_THAT(parser.GetAllArgumentsAfterTheFirstN(2), ElementsAre("c"));
  EXPECT_THAT(ReportOf(unused), HasReport("mArgWasUsed[i]", "CommandLineParser",
                                          "The 0-th Argument ('a') was not used.\n"));
  parser.GetAllArguments();
  EXPECT_FALSE(parser.Get<bool>("b", false));  // asked for, but not given
  parser.Get<bool>("v", false);
  EXPECT_THAT(ReportOf(unused),
              HasReport("mKeyWasUsed[it]", "CommandLineParser", "Option-key 'x' was not used.\n"));
  EXPECT_THAT(parser.GetAllArgumentsAfterTheFirstN(3), ElementsAre());
  EXPECT_THAT(ReportOf([&] { parser.GetAllArgumentsAfterTheFirstN(4); }),
              HasSubstr("All Arguments but the first 4 were requested.\n"
                        "But there are only 3 arguments.\n"));
}

const char* const kHelp =
    "============ help-text supplied by program ============\n"
    "the help\n"
    "=======================================================\n";

TEST(CommandLineParserDeathTest, HelpComesBeforeAnyOtherCheck) {
  for (const char* key : {"-h", "-help"}) {
    const auto onStandardError = [key] {
      std::cout.rdbuf(std::cerr.rdbuf());
      Parsed({"-o", "-o", key});
    };
    EXPECT_EXIT(onStandardError(), testing::ExitedWithCode(0), std::string("^") + kHelp);
  }
}

TEST(CommandLineParserDeathTest, AMissingRequiredOptionEndsTheProcess) {
  EXPECT_EXIT(Parsed({"a"}).Get<std::string>("o"), testing::ExitedWithCode(255),
              std::string("^ERROR in CommandLineParser\n"
                          "Option-key 'o' not given on command line.\n") +
                  kHelp);
}

}  // namespace
