// The calling stack as text for error reports. Each function works once per process, so that a
// failure inside of it cannot recurse; any further call yields nothing. So does a value of the
// environment variable VEXA_NO_BACKTRACE that is not empty.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// Returns one line per frame, innermost first: the object file, and symbol + offset in it. Drops
/// this function's own frame and `skipFrames` more; goes up to 100 frames deep. Below them, for
/// every object with a frame that has no name, the address at which it is loaded.
std::string Backtrace(int skipFrames);

/// Writes the frames straight to standard error in the C library's format. It allocates nothing,
/// and so can be called when memory is exhausted.
void PrintSimpleBacktrace(int skipFrames);

namespace Vexa {

/// Has the unwinder loaded, which allocates, so that neither function has to do it in a process
/// that is in trouble.
void PrepareBacktrace();

/// Returns the name as it stands in the source; what cannot be demangled is returned as it is.
std::string Demangle(const char* name);

}  // namespace Vexa

#pragma GCC visibility pop
