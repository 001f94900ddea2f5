#include "Utils/ErrorHandling/TerminateHandler.hpp"

#include <gmock/gmock.h>

#include <cstdlib>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/ErrorHandling/TestOutput.hpp"

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::Eq;
using testing::ExitedWithCode;
using testing::StartsWith;

// As if nobody caught it: no handler outside is asked.
template <class Action>
void Uncaught(Action action) noexcept {
  action();
}

class TerminateHandlerTest : public testing::Test {
 protected:
  TerminateHandlerTest() {
    setenv("VEXA_NO_BACKTRACE", "1", 1);
    CodeError("installs the handler", false);
  }
  ~TerminateHandlerTest() override { std::set_terminate(mpHandler); }

  const std::terminate_handler mpHandler = std::get_terminate();
  const ToldOutput mOutput;
};

TEST_F(TerminateHandlerTest, ReportByTypeOfException) {
  const struct {
    void (*mAction)();
    const char* mReport;
  } cases[] = {{[] { throw CodeError("what happened\n", false); }, "what happened\n"},
               {[] { throw std::bad_cast(); },
                "\n########## std::bad_cast caught in TerminateHandler ##########\n"
                "dynamic_cast<.> to a reference failed.\n"
                "##############################################################\n"},
               {[] { throw std::out_of_range("the reason"); },
                "\n########################   ERROR   ###########################\n"
                "TerminateHandler: std::exception (or class derived from it) caught\n"
                "the reason\n"
                "################################################################\n"},
               {[] { throw 1; },
                "\n#########################   ERROR   #########################\n"
                "TerminateHandler: Unknown exception was thrown.\n"
                "All exceptions should be derived from CodeError; STL and other\n"
                "libraries should throw std::exception.\n"
                "################################################################\n"}};
  for (const auto& c : cases) {
    EXPECT_EXIT(Uncaught(c.mAction), ExitedWithCode(255), Eq(std::string(c.mReport) + "written;"));
  }
}

TEST_F(TerminateHandlerTest, BadAlloc) {
  EXPECT_EXIT(Uncaught([] { throw std::bad_alloc(); }), ExitedWithCode(255),
              "^\n######## std::bad_alloc caught in TerminateHandler ##########\n"
              "New ran out of memory.\n"
              "Peak RSS memory    = [1-9][0-9]* bytes \n"
              "Current RSS memory = [1-9][0-9]* bytes \n"
              "#############################################################\nwritten;$");
}

TEST_F(TerminateHandlerTest, ExitByALibrary) {
  const auto leave = [](int status) {
    ReportUnexpectedExit();
    const std::string dataset = "/a.dat";
    const std::string file = "a.h5";
    const ReportContext context(dataset, file);
    std::exit(status);
  };
  EXPECT_EXIT(leave(3), ExitedWithCode(255),
              Eq("\n#########################   ERROR   #########################\n"
                 "A library ended the process by exit(3).\n"
                 "Object '/a.dat' of file 'a.h5'\n"
                 "#############################################################\nwritten;"));
  EXPECT_EXIT(leave(0), ExitedWithCode(0), Eq(""));
}

const std::string sDumbReport =
    "\n"
    "#####################    ---  ERROR  ---    ####################\n"
    "Exception was thrown, but we were unable to recover the type of \n"
    "the exception with the trick inside TerminateHandler\n"
    "################################################################\n"
    "\n";

TEST_F(TerminateHandlerTest, NoException) {
  EXPECT_EXIT(std::terminate(), ExitedWithCode(255), Eq(sDumbReport + "written;"));
}

TEST_F(TerminateHandlerTest, FailureWhileReporting) {
  struct Failing : CachedOutputObject {
    void WriteCache() const override { throw 2; }
  };
  const Failing failing;
  EXPECT_EXIT(
      Uncaught([] { throw CodeError("first;", false); }), ExitedWithCode(255),
      Eq("first;written;" + sDumbReport + "Made a recursive call to MyAbort. Exiting now.\n"));
}

TEST_F(TerminateHandlerTest, BacktraceReachesToTheThrow) {
  // A new process, for in this one a failed REQUIRE may have used up the one backtrace.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  setenv("VEXA_NO_BACKTRACE", "", 1);
  EXPECT_EXIT(Uncaught([] { throw 1; }), ExitedWithCode(255),
              AllOf(StartsWith("\n####"), ContainsRegex("  __cxa_throw \\+ 0x[0-9a-f]+\n"),
                    EndsWith("####\nwritten;")));
}

}  // namespace
