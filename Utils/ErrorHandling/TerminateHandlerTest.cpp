#include "Utils/ErrorHandling/TerminateHandler.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <exception>
#include <new>
#include <stdexcept>
#include <thread>
#include <typeinfo>

#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/ErrorHandling/TestSupport/TestOutput.hpp"

namespace {

using testing::ExitedWithCode;

// The exception is as good as uncaught: no handler outside is asked.
void Uncaught(void (*action)()) noexcept {
  action();
}

class TerminateHandlerTest : public testing::Test {
 protected:
  TerminateHandlerTest() {
    setenv("VEXA_NO_BACKTRACE", "1", 1);
    CodeError("installs the handler", false);
  }
  const ToldOutput mOutput;
};

struct Failing {
  static void Fail(const char* text) { throw CodeError(text, false); }
  ~Failing() { Fail("destructor\n"); }
};

struct FailingOutput : CachedOutputObject {
  void WriteCache() const override { throw 2; }
};

// Fails, and fails again by the action while the first failure is still alive.
template <class Action>
void FailTwice(const Action& action) {
  try {
    Failing::Fail("first\n");
  } catch (const CodeError& error) {
    action(error);
  }
}

TEST_F(TerminateHandlerTest, ReportByTypeOfException) {
  const std::pair<void (*)(), const char*> cases[] = {
      {[] { throw CodeError("what happened\n", false); }, "^what happened\nwritten;$"},
      {[] { throw std::bad_cast(); },
       "^\n#+ std::bad_cast caught in TerminateHandler #+\n[^\n]*\n#+\nwritten;$"},
      {[] { throw std::out_of_range("the reason"); },
       "^\n#+   ERROR   #+\n[^\n]*std::exception [^\n]*\nthe reason\n#+\nwritten;$"},
      {[] { throw 1; }, "^\n#+   ERROR   #+\n[^\n]*Unknown exception .*\n#+\nwritten;$"},
      {[] { throw std::bad_alloc(); },
       "^\n#+ std::bad_alloc caught in TerminateHandler #+\nNew ran out of memory.\n"
       "Peak RSS memory    = [1-9][0-9]* bytes \nCurrent RSS memory = [1-9][0-9]* bytes \n#+\n"
       "written;$"},
      {[] { std::terminate(); }, "^\n#+    ---  ERROR  ---    #+\nException was .*#\n\nwritten;$"},
      {[] { FailTwice([](const CodeError&) { const Failing failing; }); },
       "^first\ndestructor\nwritten;$"},
      {[] {
         static const FailingOutput failing;
         throw CodeError("first;", false);
       },
       "^first;written;\n#+    ---  ERROR  ---    #+\n.*#\n\nMade a recursive call to"}};
  for (const auto& [action, report] : cases) {
    EXPECT_EXIT(Uncaught(action), ExitedWithCode(255), report);
  }
  // The end of a thread, unlike that of a noexcept function, leaves the first failure alive.
  const auto other = [] { FailTwice([](const CodeError&) { throw std::bad_cast(); }); };
  EXPECT_EXIT(std::thread(other).join(), ExitedWithCode(255), "^first\n\n#+ std::bad_cast");
  const auto copy = [] { FailTwice([](const CodeError& error) { throw CodeError(error); }); };
  EXPECT_EXIT(std::thread(copy).join(), ExitedWithCode(255), "^first\nwritten;$");
}

TEST_F(TerminateHandlerTest, ExitByALibrary) {
  const auto leave = [](int status) {
    Vexa::ReportUnexpectedExit();
    const std::string name = "a.h5";
    const Vexa::ReportContext context(name, name);
    std::exit(status);
  };
  EXPECT_EXIT(leave(3), ExitedWithCode(255),
              "^\n#+   ERROR   #+\nA library ended the process by exit\\(3\\).\n"
              "Object 'a.h5' of file 'a.h5'\n#+\nwritten;$");
  EXPECT_EXIT(leave(0), ExitedWithCode(0), "^$");
}

}  // namespace
