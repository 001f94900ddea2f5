// Being linked whole, the store brings this initialiser into every program that uses it, so that
// an exception of any type which nobody catches still has the caches written. Programs
// that came through the interface in C keep their handlers (Handlers.hpp).
//
// It also keeps a program that was started without standard error from writing reports to its
// files.
#include "Utils/ErrorHandling/Handlers.hpp"
#include "Utils/ErrorHandling/TerminateHandler.hpp"
#include "Utils/Process/Files.hpp"

[[maybe_unused]] static const bool sTerminateHandlerIsInstalled =
    Vexa::LeavesHandlers() || Vexa::InstallTerminateHandler();
[[maybe_unused]] static const bool sDescriptorsAreTaken = (Vexa::TakeStandardDescriptors(), true);
