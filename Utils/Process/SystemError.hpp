#pragma once

#include <string>

#pragma GCC visibility push(default)

/// The system's text for an errno value. Thread-safe.
std::string StrError(int errnum);

#pragma GCC visibility pop
