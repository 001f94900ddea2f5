#include "Utils/StringParsing/OptionParser.hpp"

#include <gmock/gmock.h>

#include <array>
#include <functional>

#include "Utils/ErrorHandling/TestSupport/ReportOf.hpp"
#include "Utils/StringParsing/GlobalFlags.hpp"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// What the action writes to standard error before it fails, and then the short form of that.
std::string WrittenReport(const std::function<void()>& action) {
  testing::internal::CaptureStderr();
  std::string reason = "none";
  try {
    action();
  } catch (const CodeError& error) {
    reason = error.Reason();
    EXPECT_EQ(error.Message(), "");
  }
  return testing::internal::GetCapturedStderr() + reason;
}

std::string Banner(std::string banner) {
  banner.resize(78, '=');
  return banner + "\n";
}

TEST(OptionParser, ReportsInTheirWords) {
  const std::string form = "==== Value for key 'K' expected to have the form\n==== Tag(string)";
  const std::array<std::string, 3> cases[] = {
      {"A = 1; A = 2;", "======== OptionParser: DUPLICATE KEY ",
       "==== Key \"A\" specified twice.\n"},
      {"just text", "========= OptionParser: NO EQUALS SIGN ",
       "==== The option list \"just text\" does not contain an equals sign.  The option list "
       "should be a sequence of  KEY=VALUE pairs separated by semicolons.\n"},
      {"A = 1; junk", "======== OptionParser: EXTRA TEXT AT END ",
       "==== Non-whitespace string \"junk\" without an equals sign\n"
       "==== Found after the last valid option.\n"},
      {"A;B = (", "======== OptionParser: KEY WITH SEMICOLON ",
       "==== The key \"A;B\" contains a semicolon.  Just before this\n==== option, you probably "
       "used a semicolon instead of a comma.\n"},
      {"A = 1 B = 2;", "======== OptionParser: VALUE WITH EQUAL SIGN",
       "#### The value of key \"A\" (1 B = 2)\n#### contains an equal-sign.  This may indicate "
       "that the terminating\n#### semicolon after this option is missing.\n"},
      {"A = 1;", "======== OptionParser:  KEY NOT FOUND ",
       "==== Key \"K\" requested, but not specified.\n"},
      {"K = Foo(a);", "======== OptionParser: WRONG FORMAT ", form + ".\n"}};
  for (const auto& [options, banner, body] : cases) {
    EXPECT_THAT(
        WrittenReport([&] { OptionParser(options, "H\n", false).GetStringWithTag("K", "Tag"); }),
        StartsWith(Banner(banner) + body + "==== Given Options:\n" + options + "\n" +
                   Banner("==== Help: ") + "H\nOptionParser: "));
  }
  const OptionParser parser("K = Tag(a), Tag(b)(c);A=(b)", "help", false);
  EXPECT_THAT(WrittenReport([&] { parser.GetMyVectorStringWithTag("K", "Tag"); }),
              HasSubstr(form + ", Tag(string), ... .\n==== Given"));
  EXPECT_THAT(ReportOf([&] { parser.Get<int>("A"); }),
              HasSubstr("==== OptionParser Error ==============================\n"
                        "While parsing the key 'A', conversion of \nvalue '(b)' to type 'int' "
                        "failed.\n==== Provided Options ================================\n"
                        "K = Tag(a), Tag(b)(c)\nA = (b)\n"
                        "==== User-provided help-text =========================\nhelp\n"));
  // Of options from a file, which stay on a line, the report names the object and has a short form.
  const std::string object = "/a.dat";
  const Vexa::ReportContext context(object, object);
  EXPECT_THAT(WrittenReport([] { OptionParser("A=1;\nB", "help", false); }),
              EndsWith("\nA=1;\\nB\n" + Banner("==== Help: ") + "help\n" +
                       Vexa::ReportContext::Current() + "\nOptionParser: EXTRA TEXT AT END: " +
                       "Non-whitespace string \"B\" without an equals sign\n" +
                       "Found after the last valid option."));
}

TEST(OptionParser, TypedValuesAndDefaults) {
  const OptionParser parser(
      " N=2*3; # A = 2;\nX=Pi; S= a b ;B=Yes;C=c;L=(a, f(b=1,c) ,d); "
      "T=Tag( a(b) ); U=Tag(a), Tag (b, c);V=",
      "", false);
  EXPECT_EQ(parser.CompactOptionList(),
            "N=2*3;X=Pi;S=a b;B=Yes;C=c;L=(a, f(b=1,c) ,d);T=Tag( a(b) );U=Tag(a), Tag (b, c);V=;");
  EXPECT_EQ(parser.Get<int>("N", 7), 6);
  EXPECT_DOUBLE_EQ(parser.Get<double>("X"), 3.14159265358979323846);
  EXPECT_EQ(parser.Get<std::string>("S") + parser.Get<std::string>("V"), "a b");
  EXPECT_TRUE(parser.Get<bool>("B") && parser.Get<char>("C") == 'c');
  EXPECT_THAT(parser.Get<MyVector<std::string>>("L"), ElementsAre("a", "f(b=1,c)", "d"));
  EXPECT_EQ(parser.GetStringWithTag("T", "Tag", "d"), "a(b)");
  EXPECT_THAT(parser.GetMyVectorStringWithTag("U", "Tag", {"d"}), ElementsAre("a", "b, c"));
  EXPECT_EQ(parser.Get<int>("K", 7), 7);
  EXPECT_EQ(parser.GetStringWithTag("K", "Tag", "d"), "d");
  EXPECT_THAT(parser.GetMyVectorStringWithTag("K", "Tag", {"d"}), ElementsAre("d"));
  parser.TerminateIfThereAreUnusedOptions();
  // A default for replays only is no default otherwise.
  const auto inReplay = [&parser] { return parser.Get<int>("K", 3, true); };
  EXPECT_THAT(ReportOf([] { GlobalFlags::Get("HistoryFileRunMode"); }),
              HasSubstr("Global flag 'HistoryFileRunMode' is not set"));
  EXPECT_THAT(WrittenReport(inReplay), HasSubstr("KEY NOT FOUND"));
  GlobalFlags::Set("HistoryFileRunMode", "Record");
  EXPECT_THAT(ReportOf(inReplay), "");
  GlobalFlags::Set("HistoryFileRunMode", "Replay");
  EXPECT_EQ(inReplay(), 3);
}

TEST(OptionParser, DestructorChecksUseUnlessSomethingFailedAlready) {
  const auto read = [](const char* key, bool isChecked = true) {
    const OptionParser parser("A = x; B = 2;", "", isChecked);
    parser.Get<int>(key);
  };
  EXPECT_THAT(WrittenReport([&] { read("K"); }), testing::Not(HasSubstr("UNUSED OPTIONS")));
  EXPECT_THAT(ReportOf([&] { read("A"); }), HasSubstr("conversion of"));
  read("B", false);
  {
    const OptionParser parser("A = 1;", "", true);
    EXPECT_THAT(WrittenReport([&] { parser.Get<int>("K"); }), HasSubstr("KEY NOT FOUND"));
  }
  const auto unused = [] {
    const OptionParser parser("A = x; B = 2; C = 3;", "", true);
    ReportOf([&parser] { parser.Get<int>("A"); });  // a failed read is no use
    parser.Get<int>("B");
  };
  EXPECT_EXIT(unused(), testing::ExitedWithCode(255),
              "UNUSED OPTIONS =+\n.*not used:\n=== A\n=== C\n=== Given");
}

}  // namespace
