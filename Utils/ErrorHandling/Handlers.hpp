// The handlers that the library gives its process: those of Signals.hpp, that of SIGUSR2
// (CachedOutput.hpp) and the terminate handler. Static initialisers install them in programs of
// C++. A program that opened the library through its interface in C has handlers of its own, which
// stay as they are until it asks for ours.
#pragma once

namespace Vexa {

/// Whether the process's handlers are to be left alone. The interface in C says so by being linked.
bool LeavesHandlers();

/// Installs all of them. From here on they are no longer left alone.
void InstallHandlers();

}  // namespace Vexa
