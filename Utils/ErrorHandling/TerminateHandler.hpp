// What happens to an exception that nobody catches. Constructing a CodeError installs
// TerminateHandler by std::set_terminate; neither function is called directly.
#pragma once

/// Reports the current exception and ends the run through MyAbort.
[[noreturn]] void TerminateHandler();

/// Takes over while TerminateHandler runs: for failures inside of it, and when there is no
/// exception to report.
[[noreturn]] void DumbTerminateHandler();
