// A program that knows nothing but REQUIRE: are the signal handlers linked into it?
#include <csignal>

#include "Utils/ErrorHandling/Require.hpp"

int main(int argc, char**) {
  REQUIRE(argc>0, "");
  const auto isHandled = [](int number) { return std::signal(number, SIG_IGN) != SIG_DFL; };
  return isHandled(SIGSEGV) && isHandled(SIGQUIT) && isHandled(SIGUSR2) ? 0 : 1;
}
