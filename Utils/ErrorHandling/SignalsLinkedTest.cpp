// A program that knows nothing but REQUIRE: are the signal handlers linked into it?
#include <csignal>

#include "Utils/ErrorHandling/Require.hpp"

int main(int argc, char**) {
  REQUIRE(argc>0, "");
  for (const int signal : {SIGSEGV, SIGFPE, SIGABRT, SIGQUIT, SIGUSR2}) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_DFL) {
      return signal;
    }
  }
  return 0;
}
