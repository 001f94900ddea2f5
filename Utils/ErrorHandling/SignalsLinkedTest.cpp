// This program knows nothing but REQUIRE; the signal handlers are linked into it all the same.
#include <csignal>

#include "Utils/ErrorHandling/Require.hpp"

int main(int argc, char**) {
  REQUIRE(argc>0, "");
  const auto isHandled = [](int number) { return std::signal(number, SIG_IGN) != SIG_DFL; };
  return isHandled(SIGSEGV) && isHandled(SIGQUIT) && isHandled(SIGUSR2) ? 0 : 1;
}
