// Being linked whole, the store brings this initialiser into every program that uses it, so that
// an exception of any type which nobody catches still has the caches written. A library that must
// leave its process's handlers alone is made without this source.
#include "Utils/ErrorHandling/TerminateHandler.hpp"

[[maybe_unused]] static const bool sTerminateHandlerIsInstalled = InstallTerminateHandler();
