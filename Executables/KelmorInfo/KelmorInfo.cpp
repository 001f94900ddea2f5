#include <exception>

#include "Executables/KelmorInfo/InfoDriver.hpp"
#include "Utils/ErrorHandling/Signals.hpp"
#include "Utils/ErrorHandling/TerminateHandler.hpp"
#include "Utils/HDF5/Library.hpp"
#include "Utils/Process/Files.hpp"

int main(int argc, char** argv) {
  std::set_terminate(TerminateHandler);
  Vexa::IgnoreFileSizeSignal();
  Vexa::RaiseOpenFileLimit();
  const int status = RunInfo(argc, argv);
  // What was told may have failed within the library, which does not end without words of its own
  // then. Nothing waits to be written.
  if (status == 1) {
    Vexa_H5::EndProcess(status);
  }
  return status;
}
