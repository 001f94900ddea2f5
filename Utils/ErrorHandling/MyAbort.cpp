#include "Utils/ErrorHandling/MyAbort.hpp"

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <thread>
#include <utility>

#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/ErrorHandling/ParallelRuntime.hpp"
#include "Utils/ErrorHandling/Signals.hpp"

namespace {

int SleepSeconds = 10;
bool During_Shutdown = false;

// Nobody calls the signal handlers, so a linker would leave their object in the archive. Every way
// to fail leads here: whatever program can fail has the handlers, too.
[[maybe_unused]] const bool sSignalsAreLinked = EnableSignalBacktraces();

}  // namespace

void MyAbort() noexcept {
  if (std::exchange(During_Shutdown, true)) {
    std::cerr << "Made a recursive call to MyAbort. Exiting now." << std::endl;
    std::exit(-1);
  }
  const ParallelRuntime& runtime = ParallelRuntime::Instance();
  if (runtime.IsInitialized() && runtime.NumberOfProcesses() >= 2) {
    CachedOutput::FlushCachedOutputOnAllProcessors();
    std::this_thread::sleep_for(std::chrono::seconds(SleepSeconds));
    runtime.Abort(-1);
  } else {
    CachedOutput::FlushCachedOutput();
  }
  std::exit(-1);
}

void MyAbort_ChangeSleepSeconds(int seconds) {
  SleepSeconds = seconds;
}

bool MyAbortCalled_UncleanShutdown() {
  return During_Shutdown;
}
