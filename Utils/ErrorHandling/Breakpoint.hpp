#pragma once

#pragma GCC visibility push(default)

/// Stops a debugger here; without one nothing happens. (Raises SIGTRAP, which is ignored.)
void Breakpoint();

#pragma GCC visibility pop
