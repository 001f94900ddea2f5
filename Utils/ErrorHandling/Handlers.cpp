#include "Utils/ErrorHandling/Handlers.hpp"

#include <atomic>

#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/ErrorHandling/Signals.hpp"
#include "Utils/ErrorHandling/TerminateHandler.hpp"

// The address is null in a program without the interface in C. A flag that somebody sets would be
// set too late for some static initialisers.
extern "C" [[gnu::weak]] const char vexa_leaves_handlers;

namespace {
constinit std::atomic<bool> sAreWanted = false;
}  // namespace

bool Vexa::LeavesHandlers() {
  return &vexa_leaves_handlers != nullptr && !sAreWanted;
}

void Vexa::InstallHandlers() {
  sAreWanted = true;
  Vexa::EnableSignalBacktraces();
  CachedOutput::FlushOnSIGUSR2();
  Vexa::InstallTerminateHandler();
}
