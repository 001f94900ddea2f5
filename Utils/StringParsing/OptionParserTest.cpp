#include "Utils/StringParsing/OptionParser.hpp"

#include <gmock/gmock.h>

#include <functional>
#include <thread>

#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/ReportOf.hpp"
#include "Utils/StringParsing/GlobalFlags.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// What the action writes to standard error before it fails with an empty CodeError.
std::string WrittenReport(const std::function<void()>& action) {
  testing::internal::CaptureStderr();
  const std::string message = ReportOf(action);
  std::string written = testing::internal::GetCapturedStderr();
  EXPECT_EQ(message, "");
  return written;
}

std::string Equals(std::size_t n) {
  return std::string(n, '=') + "\n";
}

TEST(OptionParser, PairsInTheOrderOfTheText) {
  const struct {
    const char* mOptions;
    const char* mCompact;
  } cases[] = {{"", ""},
               {"# comment only", ""},
               {"B = x; A = 1;", "B=x;A=1;"},
               {" A=1 ;\n B = x", "A=1;B=x;"},
               {"A = 1; # B = 2;", "A=1;"},
               {"A = 1; # B = 2;\nC = 3;", "A=1;C=3;"},
               {"F = Foo(a = 1; b = 2);G=;", "F=Foo(a = 1; b = 2);G=;"}};
  for (const auto& c : cases) {
    EXPECT_EQ(OptionParser(c.mOptions, "", false).CompactOptionList(), c.mCompact) << c.mOptions;
  }
}

TEST(OptionParser, SyntaxErrorsAreReportedToTheCharacter) {
  const struct {
    std::string mOptions;
    std::string mReport;
  } cases[] = {
      {"just text",
       "========= OptionParser: NO EQUALS SIGN " + Equals(39) +
           "==== The option list \"just text\" does not contain an equals sign.  The option list "
           "should be a sequence of  KEY=VALUE pairs separated by semicolons.\n"},
      {"A = 1; junk", "======== OptionParser: EXTRA TEXT AT END " + Equals(37) +
                          "==== Non-whitespace string \"junk\" without an equals sign\n"
                          "==== Found after the last valid option.\n"},
      {"A = a; b; B = 2;", "======== OptionParser: KEY WITH SEMICOLON " + Equals(36) +
                               "==== The key \"b; B\" contains a semicolon.  Just before this\n"
                               "==== option, you probably used a semicolon instead of a comma.\n"},
      {"A = 1 B = 2;", "======== OptionParser: VALUE WITH EQUAL SIGN" + Equals(34) +
                           "#### The value of key \"A\" (1 B = 2)\n"
                           "#### contains an equal-sign.  This may indicate that the terminating\n"
                           "#### semicolon after this option is missing.\n"},
      {"A = 1; A = 2;",
       "======== OptionParser: DUPLICATE KEY " + Equals(41) + "==== Key \"A\" specified twice.\n"},
  };
  for (const auto& c : cases) {
    const auto parse = [&c](const std::string& help) {
      return WrittenReport([&] { OptionParser(" " + c.mOptions + " # c\n", help, true); });
    };
    const std::string withoutHelp = c.mReport + "==== Given Options:\n" + c.mOptions + "\n";
    EXPECT_EQ(parse(""), withoutHelp);
    EXPECT_EQ(parse("H\n"), withoutHelp + "==== Help: " + Equals(67) + "H\n");
  }
  EXPECT_THAT(WrittenReport([] { OptionParser("A;B = (", "", true); }),
              HasSubstr("OptionParser: KEY WITH SEMICOLON"));  // before what follows is looked at
  for (const char* options : {"A = (1; B = 2;", "A = 1); B = 2", "(A = 1;"}) {
    EXPECT_THAT(ReportOf([&] { OptionParser(options, "", false); }),
                HasSubstr("FindWhileParsingFast: Unbalanced parentheses.\n"));
  }
}

TEST(OptionParser, TypedValues) {
  const OptionParser parser("N=2*3; X=Pi; S= a b ;B=Yes;C=c;L=(a, f(b,c) ,d);", "", true);
  EXPECT_EQ(parser.Get<int>("N"), 6);
  EXPECT_DOUBLE_EQ(parser.Get<double>("X"), 3.14159265358979323846);
  EXPECT_EQ(parser.Get<std::string>("S"), "a b");
  EXPECT_TRUE(parser.Get<bool>("B"));
  EXPECT_EQ(parser.Get<char>("C"), 'c');
  EXPECT_THAT(parser.Get<MyVector<std::string>>("L"), ElementsAre("a", "f(b,c)", "d"));
  EXPECT_EQ(parser.Get<int>("Absent", 7), 7);
  EXPECT_EQ(parser.Get<int>("N", 7), 6);
}

TEST(OptionParser, FailedConversionShowsKeyValueAndType) {
  const OptionParser parser("N = x; M = 2;", "the help", false);
  const auto context = [](const std::string& type) {
    return "\n==== OptionParser Error ==============================\n"
           "While parsing the key 'N', conversion of \n"
           "value 'x' to type '" +
           type +
           "' failed.\n"
           "==== Provided Options ================================\n"
           "N = x\nM = 2\n"
           "==== User-provided help-text =========================\n"
           "the help\n";
  };
  EXPECT_THAT(ReportOf([&] { parser.Get<int>("N"); }), HasSubstr(context("int")));
  EXPECT_THAT(ReportOf([&] { parser.Get<double>("N", 1.0); }), HasSubstr(context("double")));
  EXPECT_THAT(ReportOf([&] { parser.Get<bool>("N"); }), HasSubstr(context("bool")));
}

TEST(OptionParser, MissingKey) {
  const OptionParser parser("A=1;", "", false);
  const std::string report = "======== OptionParser:  KEY NOT FOUND " + Equals(40) +
                             "==== Key \"K\" requested, but not specified.\n"
                             "==== Given Options:\nA=1;\n";
  EXPECT_EQ(WrittenReport([&] { parser.Get<int>("K"); }), report);
  EXPECT_EQ(WrittenReport([&] { parser.GetStringWithTag("K", "tag"); }), report);

  // A default for replays only is no default otherwise.
  EXPECT_EQ(WrittenReport([&] { parser.Get<int>("K", 3, true); }), report);
  GlobalFlags::Set("HistoryFileRunMode", "Record");
  EXPECT_EQ(WrittenReport([&] { parser.Get<int>("K", 3, true); }), report);
  GlobalFlags::Set("HistoryFileRunMode", "Replay");
  EXPECT_EQ(parser.Get<int>("K", 3, true), 3);
}

TEST(OptionParser, TaggedValues) {
  const OptionParser parser("T = Tag( a(b) ); L = Tag(a), Tag (b, c); W = Tag(a)(b); N = Tagx(a);",
                            "", false);
  EXPECT_EQ(parser.GetStringWithTag("T", "Tag"), "a(b)");
  EXPECT_EQ(parser.GetStringWithTag("Absent", "Tag", "d"), "d");
  EXPECT_THAT(parser.GetMyVectorStringWithTag("L", "Tag"), ElementsAre("a", "b, c"));
  EXPECT_THAT(parser.GetMyVectorStringWithTag("Absent", "Tag", {"d"}), ElementsAre("d"));

  const std::string banner = "======== OptionParser: WRONG FORMAT " + Equals(42);
  for (const char* key : {"W", "N", "L"}) {
    EXPECT_THAT(WrittenReport([&] { parser.GetStringWithTag(key, "Tag"); }),
                HasSubstr(banner + "==== Value for key '" + key +
                          "' expected to have the form\n==== Tag(string).\n==== Given"));
  }
  EXPECT_THAT(WrittenReport([&] { parser.GetMyVectorStringWithTag("W", "Tag"); }),
              HasSubstr("form\n==== Tag(string), Tag(string), ... .\n==== Given"));
}

TEST(OptionParser, UnusedOptions) {
  const OptionParser parser("A=1;B=x;C=3;", "", false);
  std::thread([&parser] { parser.Get<int>("A"); }).join();
  ReportOf([&parser] { parser.Get<int>("B"); });  // a failed read is no use
  EXPECT_EQ(WrittenReport([&] { parser.TerminateIfThereAreUnusedOptions(); }),
            "======== OptionParser: UNUSED OPTIONS " + Equals(40) +
                "======= These options were not used:\n=== B\n=== C\n"
                "=== Given Options:\nA=1;B=x;C=3;\n");
  parser.Get<std::string>("B");
  parser.Get<int>("C");
  parser.TerminateIfThereAreUnusedOptions();
}

TEST(OptionParserDeathTest, DestructorChecksUnlessSomethingFailedAlready) {
  EXPECT_EXIT(OptionParser("A = 1; B = 2;", "", true).Get<int>("A"), testing::ExitedWithCode(255),
              "UNUSED OPTIONS =+\n.*not used:\n=== B\n=== Given");
  {
    const OptionParser parser("A = 1; B = 2;", "", true);
    EXPECT_THAT(WrittenReport([&] { parser.Get<int>("K"); }), HasSubstr("KEY NOT FOUND"));
  }
  testing::internal::CaptureStderr();
  EXPECT_THAT(ReportOf([] {
                const OptionParser parser("A = x; B = 2;", "", true);
                parser.Get<int>("A");
              }),
              HasSubstr("conversion of"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
