#include "Utils/StringParsing/OptionParser.hpp"

#include <gmock/gmock.h>

#include <functional>

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
  EXPECT_EQ(
      OptionParser(" B=1 ; # A = 2;\n F = Foo(a = 1; b = 2);G=", "", false).CompactOptionList(),
      "B=1;F=Foo(a = 1; b = 2);G=;");
}

TEST(OptionParser, SyntaxErrorsAreReported) {
  EXPECT_EQ(WrittenReport([] { OptionParser(" A = 1; A = 2; # c\n", "H\n", true); }),
            "======== OptionParser: DUPLICATE KEY " + Equals(41) +
                "==== Key \"A\" specified twice.\n==== Given Options:\nA = 1; A = 2;\n"
                "==== Help: " +
                Equals(67) + "H\n");
  const struct {
    const char* mOptions;
    const char* mReport;
  } cases[] = {
      {"just text", "=\n==== The option list \"just text\" does not contain an equals sign."},
      {"A = 1; junk", "=\n==== Non-whitespace string \"junk\" without an equals sign\n"},
      {"A;B = (", "=\n==== The key \"A;B\" contains a semicolon."},
      {"A = 1 B = 2;", "=\n#### The value of key \"A\" (1 B = 2)\n#### contains an equal-sign."}};
  for (const auto& c : cases) {
    EXPECT_THAT(WrittenReport([&] { OptionParser(c.mOptions, "", true); }), HasSubstr(c.mReport));
  }
  for (const char* options : {"A = (1; B = 2;", "A = 1); B = 2", "(A = 1;"}) {
    EXPECT_THAT(ReportOf([&] { OptionParser(options, "", false); }),
                HasSubstr("FindWhileParsingFast: Unbalanced parentheses.\n"));
  }
}

TEST(OptionParser, TypedValues) {
  const OptionParser parser(
      "N=2*3; X=Pi; S= a b ;B=Yes;C=c;L=(a, f(b,c) ,d); T=Tag( a(b) ); U=Tag(a), Tag (b, c)", "",
      true);
  EXPECT_EQ(parser.Get<int>("N"), 6);
  EXPECT_DOUBLE_EQ(parser.Get<double>("X"), 3.14159265358979323846);
  EXPECT_EQ(parser.Get<std::string>("S"), "a b");
  EXPECT_TRUE(parser.Get<bool>("B"));
  EXPECT_EQ(parser.Get<char>("C"), 'c');
  EXPECT_THAT(parser.Get<MyVector<std::string>>("L"), ElementsAre("a", "f(b,c)", "d"));
  EXPECT_EQ(parser.Get<int>("Absent", 7), 7);
  EXPECT_EQ(parser.Get<int>("N", 7), 6);
  EXPECT_EQ(parser.GetStringWithTag("T", "Tag"), "a(b)");
  EXPECT_EQ(parser.GetStringWithTag("Absent", "Tag", "d"), "d");
  EXPECT_THAT(parser.GetMyVectorStringWithTag("U", "Tag"), ElementsAre("a", "b, c"));
  EXPECT_THAT(parser.GetMyVectorStringWithTag("Absent", "Tag", {"d"}), ElementsAre("d"));
}

TEST(OptionParser, WhatCannotBeReadIsReported) {
  const OptionParser parser("N = x; W = Tag(a)(b); X = Tagx(a); L = Tag(a), Tag(b);", "help",
                            false);
  EXPECT_THAT(ReportOf([&] { parser.Get<int>("N"); }),
              HasSubstr("While parsing the key 'N', conversion of \n"
                        "value 'x' to type 'int' failed.\n"
                        "==== Provided Options ================================\n"
                        "N = x\nW = Tag(a)(b)\nX = Tagx(a)\nL = Tag(a), Tag(b)\n"
                        "==== User-provided help-text =========================\nhelp\n"));
  for (const char* key : {"W", "X", "L"}) {
    EXPECT_THAT(WrittenReport([&] { parser.GetStringWithTag(key, "Tag"); }),
                HasSubstr("==== Value for key '" + std::string(key) +
                          "' expected to have the form\n==== Tag(string).\n==== Given"));
  }
  EXPECT_THAT(WrittenReport([&] { parser.GetMyVectorStringWithTag("W", "Tag"); }),
              HasSubstr("form\n==== Tag(string), Tag(string), ... .\n==== Given"));

  const auto missing = HasSubstr("==== Key \"K\" requested, but not specified.\n");
  EXPECT_THAT(WrittenReport([&] { parser.Get<int>("K"); }), missing);
  EXPECT_THAT(WrittenReport([&] { parser.GetStringWithTag("K", "tag"); }), missing);
  // A default for replays only is no default otherwise.
  GlobalFlags::Set("HistoryFileRunMode", "Record");
  EXPECT_THAT(WrittenReport([&] { parser.Get<int>("K", 3, true); }), missing);
  GlobalFlags::Set("HistoryFileRunMode", "Replay");
  EXPECT_EQ(parser.Get<int>("K", 3, true), 3);
}

TEST(OptionParser, DestructorChecksUseUnlessSomethingFailedAlready) {
  const auto failedRead = [](const char* key) {
    const OptionParser parser("A = x; B = 2;", "", true);
    parser.Get<int>(key);
  };
  EXPECT_THAT(WrittenReport([&] { failedRead("K"); }), testing::Not(HasSubstr("UNUSED OPTIONS")));
  EXPECT_THAT(ReportOf([&] { failedRead("A"); }), HasSubstr("conversion of"));
  {
    const OptionParser parser("A = 1; B = x;", "", true);
    EXPECT_THAT(WrittenReport([&] { parser.Get<int>("K"); }), HasSubstr("KEY NOT FOUND"));
  }
  const auto unused = [] {
    const OptionParser parser("A = 1; B = x; C = 3;", "", true);
    parser.Get<int>("A");
    ReportOf([&parser] { parser.Get<int>("B"); });  // a failed read is no use
  };
  EXPECT_EXIT(unused(), testing::ExitedWithCode(255),
              "UNUSED OPTIONS =+\n.*not used:\n=== B\n=== C\n=== Given");
}

}  // namespace
