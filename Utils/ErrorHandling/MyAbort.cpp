#include "Utils/ErrorHandling/MyAbort.hpp"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <new>
#include <string>
#include <thread>

#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/ErrorHandling/Handlers.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/ParallelRuntime.hpp"
#include "Utils/ErrorHandling/Signals.hpp"
#include "Utils/ErrorHandling/SigpipeHeldBack.hpp"

namespace {

int SleepSeconds = 10;
std::atomic<bool> During_Shutdown = false;
std::atomic<bool> sHasFlushed = false;
thread_local bool sIsEndingProcess = false;

// Nobody calls the signal handlers, so a linker would leave their object in the archive. Every way
// to fail leads here: whatever program can fail has the handlers, too.
[[maybe_unused]] const bool sSignalsAreLinked =
    Vexa::LeavesHandlers() || Vexa::EnableSignalBacktraces();

// Gives the other processes their time to write, and says who is not known to have done so.
void WaitForOthers(const Vexa::ParallelRuntime& runtime) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + std::chrono::seconds(SleepSeconds);
  while (!runtime.OthersHaveWritten() && Clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  try {
    if (const std::string text = runtime.OthersNotWritten(); !text.empty()) {
      MyErr << text;
    }
  } catch (const std::bad_alloc&) {
    // Memory may be what the process ends for; the job is aborted without this word.
  }
}

}  // namespace

void MyAbort() noexcept {
  if (During_Shutdown.exchange(true)) {
    if (!sIsEndingProcess) {
      Vexa::MyAbort_AwaitEnd();
    }
    sHasFlushed = true;
    {
      const SigpipeHeldBack guard;
      std::cerr << "Made a recursive call to MyAbort. Exiting now." << std::endl;
    }
    std::exit(-1);
  }
  sIsEndingProcess = true;
  const Vexa::ParallelRuntime& runtime = Vexa::ParallelRuntime::Instance();
  if (runtime.IsInitialized() && runtime.NumberOfProcesses() >= 2) {
    CachedOutput::FlushCachedOutputOnAllProcessors();
    sHasFlushed = true;
    WaitForOthers(runtime);
    runtime.Abort(-1);
  } else {
    CachedOutput::FlushCachedOutput();
    sHasFlushed = true;
  }
  std::exit(-1);
}

void Vexa::MyAbort_AwaitEnd() noexcept {
  for (int seconds = 0; seconds < 60; seconds += sHasFlushed ? 1 : 0) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
  _exit(-1);
}

bool Vexa::MyAbort_CalledByAnotherThread() {
  return During_Shutdown && !sIsEndingProcess;
}

void Vexa::MyAbort_LastOutputWritten() noexcept {
  sHasFlushed = true;
}

void MyAbort_ChangeSleepSeconds(int seconds) {
  SleepSeconds = seconds;
}

int Vexa::MyAbort_SleepSeconds() {
  return SleepSeconds;
}

bool MyAbortCalled_UncleanShutdown() {
  return During_Shutdown;
}
