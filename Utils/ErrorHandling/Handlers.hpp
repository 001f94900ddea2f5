// The handlers that the library gives its process: those of Signals.hpp, that of SIGUSR2
// (CachedOutput.hpp) and the terminate handler. Static initialisers install them in programs of
// C++. Any other program that loads the library has handlers of its own, which stay as they are
// until it asks for ours.
#pragma once

#pragma GCC visibility push(default)

// Sources in C++ that include the library's headers say by a symbol which language the program is
// of. A flag that they set would be set too late for some static initialisers.
extern "C" {
[[gnu::weak]] extern const char vexa_wants_handlers;
#ifndef VEXA_LIBRARY
const char vexa_wants_handlers = 1;  // NOLINT(misc-definitions-in-headers): it is weak
#endif
}

namespace Vexa {

/// Whether the process's handlers are to be left alone, since no source in C++ wants ours.
bool LeavesHandlers();

/// Installs all of them. From here on they are no longer left alone.
void InstallHandlers();

}  // namespace Vexa

#pragma GCC visibility pop
