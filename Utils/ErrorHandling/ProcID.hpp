#pragma once

#include <string>

#pragma GCC visibility push(default)

/// Identifies this process in trace lines and reports: its rank in brackets, "[3]", or "[??]"
/// while none is known.
std::string ProcID_();

#pragma GCC visibility pop
