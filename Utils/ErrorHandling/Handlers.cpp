#include "Utils/ErrorHandling/Handlers.hpp"

#include <atomic>

#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/ErrorHandling/Signals.hpp"
#include "Utils/ErrorHandling/TerminateHandler.hpp"

namespace {
constinit std::atomic<bool> sAreWanted = false;
}  // namespace

bool Vexa::LeavesHandlers() {
  return &vexa_wants_handlers == nullptr && !sAreWanted;
}

void Vexa::InstallHandlers() {
  sAreWanted = true;
  Vexa::EnableSignalBacktraces();
  CachedOutput::FlushOnSIGUSR2();
  Vexa::InstallTerminateHandler();
}
