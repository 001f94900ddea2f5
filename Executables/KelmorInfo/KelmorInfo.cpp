#include <exception>

#include "Executables/KelmorInfo/InfoDriver.hpp"
#include "Utils/ErrorHandling/Signals.hpp"
#include "Utils/ErrorHandling/TerminateHandler.hpp"
#include "Utils/Process/Files.hpp"

int main(int argc, char** argv) {
  std::set_terminate(TerminateHandler);
  Vexa::IgnoreFileSizeSignal();
  Vexa::RaiseOpenFileLimit();
  return RunInfo(argc, argv);
}
