#include <exception>

#include "Executables/KelmorInfo/InfoDriver.hpp"
#include "Utils/ErrorHandling/Signals.hpp"
#include "Utils/ErrorHandling/TerminateHandler.hpp"
#include "Utils/Process/Files.hpp"

int main(int argc, char** argv) {
  std::set_terminate(TerminateHandler);
  Vexa::IgnoreFileSizeSignal();
  Vexa::RaiseOpenFileLimit();
  try {
    return RunInfo(argc, argv);
  } catch (...) {
    // All that was open is closed by now. The library (1.10.8, tried) crashes over some of it, such
    // as the creation list of a virtual dataset, when the process ends.
    TerminateHandler();
  }
}
