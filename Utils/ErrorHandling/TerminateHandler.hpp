// What happens to an exception that nobody catches. TerminateHandler is installed by
// std::set_terminate: when a program that is linked with the object store starts, and in others by
// the first CodeError. Neither handler is called directly.
#pragma once

#pragma GCC visibility push(default)

namespace Vexa {

/// Installs TerminateHandler; what the store's static initialiser calls. Always true.
bool InstallTerminateHandler();

}  // namespace Vexa

/// Reports the current exception and ends the run through MyAbort.
[[noreturn]] void TerminateHandler();

namespace Vexa {

/// From this call on, an exit() with a failure status that MyAbort did not make is reported, and
/// made to one of MyAbort: some libraries leave that way where memory is exhausted. To be called
/// when the objects that hold output have been made, so that they are there to write.
void ReportUnexpectedExit();

}  // namespace Vexa

/// Takes over while TerminateHandler runs: for failures inside of it, and when there is no
/// exception to report.
[[noreturn]] void DumbTerminateHandler();

#pragma GCC visibility pop
