// Fatal signals report themselves before they end the process. A static initialiser that is linked
// into every program which uses REQUIRE, CodeError or MyAbort installs the handler for SIGSEGV,
// SIGFPE, SIGABRT and SIGQUIT: the signal and a backtrace go to MyErr, then the signal takes its
// default action. No cached output is written, for the process may be in any state.
#pragma once

#pragma GCC visibility push(default)

/// Whether the handler is installed.
extern bool signal_backtraces_enabled;

namespace Vexa {

/// Installs the handler; what the static initialiser calls. Always true.
bool EnableSignalBacktraces();

/// Makes a write beyond the file-size limit fail with an error, which is reported, rather than end
/// the process by SIGXFSZ. Not part of the static initialiser: programs that write large files call
/// it first thing in main().
void IgnoreFileSizeSignal();

}  // namespace Vexa

#pragma GCC visibility pop
