#include "Utils/ErrorHandling/TerminateHandler.hpp"

#include <gmock/gmock.h>

#include <cstdlib>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <typeinfo>

#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/ErrorHandling/TestOutput.hpp"

namespace {

using testing::ExitedWithCode;

// As if nobody caught it: no handler outside is asked.
void Uncaught(void (*action)()) noexcept {
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

constexpr char sNoException[] = "^\n#+    ---  ERROR  ---    #+\nException was .*#\n\nwritten;$";

TEST_F(TerminateHandlerTest, ReportByTypeOfException) {
  const struct {
    void (*mAction)();
    const char* mReport;
  } cases[] = {{[] { throw CodeError("what happened\n", false); }, "^what happened\nwritten;$"},
               {[] { throw std::bad_cast(); },
                "^\n#+ std::bad_cast caught in TerminateHandler #+\n[^\n]*\n#+\nwritten;$"},
               {[] { throw std::out_of_range("the reason"); },
                "^\n#+   ERROR   #+\n[^\n]*std::exception [^\n]*\nthe reason\n#+\nwritten;$"},
               {[] { throw 1; }, "^\n#+   ERROR   #+\n[^\n]*Unknown exception .*\n#+\nwritten;$"},
               {[] { throw std::bad_alloc(); },
                "^\n#+ std::bad_alloc caught in TerminateHandler #+\n"
                "New ran out of memory.\n"
                "Peak RSS memory    = [1-9][0-9]* bytes \n"
                "Current RSS memory = [1-9][0-9]* bytes \n#+\nwritten;$"},
               {[] { std::terminate(); }, sNoException}};
  for (const auto& c : cases) {
    EXPECT_EXIT(Uncaught(c.mAction), ExitedWithCode(255), c.mReport);
  }
  // A new process, for in this one a failed REQUIRE may have used up the one backtrace.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  setenv("VEXA_NO_BACKTRACE", "", 1);
  EXPECT_EXIT(Uncaught([] { throw 1; }), ExitedWithCode(255),
              "^\n####.*  __cxa_throw \\+ 0x[0-9a-f]+\n.*####\nwritten;$");
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
              "^\n#+   ERROR   #+\nA library ended the process by exit\\(3\\).\n"
              "Object '/a.dat' of file 'a.h5'\n#+\nwritten;$");
  EXPECT_EXIT(leave(0), ExitedWithCode(0), "^$");
}

TEST_F(TerminateHandlerTest, TheFirstFailureIsReportedFirst) {
  struct Failing {
    static void Fail(const char* text) { throw CodeError(text, false); }
    ~Failing() { Fail("destructor\n"); }
  };
  const auto failInDestructor = [] {
    try {
      const Failing failing;
      Failing::Fail("first\n");
    } catch (const CodeError&) {
    }
  };
  const auto failInHandler = [] {
    try {
      Failing::Fail("first\n");
    } catch (const CodeError&) {
      throw std::out_of_range("handler");
    }
  };
  EXPECT_EXIT(std::thread(failInHandler).join(), ExitedWithCode(255),
              "^first\n\n#+   ERROR(.|\n)*handler\n");
  EXPECT_EXIT(Uncaught(failInDestructor), ExitedWithCode(255), "^first\ndestructor\nwritten;$");
}

TEST_F(TerminateHandlerTest, FailureWhileReporting) {
  struct Failing : CachedOutputObject {
    void WriteCache() const override { throw 2; }
  };
  const Failing failing;
  EXPECT_EXIT(Uncaught([] { throw CodeError("first;", false); }), ExitedWithCode(255),
              "^first;written;\n#+    ---  ERROR  ---    #+\n.*#\n\nMade a recursive call to");
}

}  // namespace
