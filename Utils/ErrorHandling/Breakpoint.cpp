#include "Utils/ErrorHandling/Breakpoint.hpp"

#include <csignal>

#include "Utils/ErrorHandling/Handlers.hpp"

void Breakpoint() {
  if (Vexa::LeavesHandlers()) {
    return;
  }
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGTRAP, &ignore, nullptr);
  raise(SIGTRAP);
}
