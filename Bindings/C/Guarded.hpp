// What every function of the interface in C does: nothing may leave it but a status.
#pragma once

#include <string_view>

#include "Bindings/C/vexa.h"
#include "Utils/Store/InsideStore.hpp"

namespace Vexa::C {

/// Keeps the report of the exception that is being handled for this thread, and returns its status.
int KeepReport() noexcept;

/// Fails if the process is ending and has written all files.
void RequireRunning();

template <class Work>
int Guarded(const Work& work) noexcept {
  try {
    RequireRunning();
    const InsideStore inside;  // for the whole of a call, which changes handles, too
    work();
    return VEXA_OK;
  } catch (...) {
    return KeepReport();
  }
}

/// Arranges that what waits at the end of the process is written by a function that reports what
/// fails, rather than by a destructor, where that would keep the program's own files from being
/// closed.
void ArrangeEnd();

}  // namespace Vexa::C
