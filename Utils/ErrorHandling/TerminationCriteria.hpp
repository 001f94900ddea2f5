#pragma once

#pragma GCC visibility push(default)

namespace TerminationCriteria {

/// Whether floating-point traps are enabled.
inline bool TerminateOnFPE = false;

/// From here on an invalid floating-point operation, a division by zero or an overflow ends the
/// process by SIGFPE. Returns true.
bool TerminateOnFloatingPointException();

}  // namespace TerminationCriteria

#pragma GCC visibility pop
