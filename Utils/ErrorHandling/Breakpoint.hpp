#pragma once

/// Stops a debugger here; without one nothing happens. (Raises SIGTRAP, which is ignored.)
void Breakpoint();
