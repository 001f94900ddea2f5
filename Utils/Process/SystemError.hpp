#pragma once

#include <string>

/// The system's text for an errno value. Thread-safe.
std::string StrError(int errnum);
