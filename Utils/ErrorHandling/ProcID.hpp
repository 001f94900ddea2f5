#pragma once

#include <string>

/// Identifies this process in trace lines and reports: its rank in brackets, "[3]", or "[??]"
/// while none is known.
std::string ProcID_();
