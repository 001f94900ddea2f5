#include "Utils/ErrorHandling/Breakpoint.hpp"

#include <csignal>

void Breakpoint() {
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGTRAP, &ignore, nullptr);
  raise(SIGTRAP);
}
