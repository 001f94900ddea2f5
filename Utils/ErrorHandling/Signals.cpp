#include "Utils/ErrorHandling/Signals.hpp"

#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>

#include "Utils/ErrorHandling/Backtrace.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"

bool signal_backtraces_enabled = false;

namespace {

void SetAction(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigaction(signal, &action, nullptr);
}

// This calls functions that are not safe in a signal handler. The process is lost anyway, and
// mostly the report gets out. If it does not, the process still ends: a further fatal signal in
// here finds the report begun and takes its default action, and a lock of the allocator that the
// failed code holds meets the alarm.
void BacktraceSignal(int signal) {
  static volatile std::sig_atomic_t sReporting = 0;
  SetAction(signal, SIG_DFL);
  if (sReporting == 0) {
    sReporting = 1;
    SetAction(SIGALRM, SIG_DFL);
    alarm(60);
    const char* description = sigdescr_np(signal);
    MyErrProxy report;
    report << "Received signal " << signal << " ("
           << (description == nullptr ? "Unknown signal" : description) << ")\n";
    if (const std::string backtrace = Backtrace(2); !backtrace.empty()) {
      report << backtrace;
    } else {
      PrintSimpleBacktrace(1);
    }
  }
  raise(signal);
}

}  // namespace

bool Vexa::EnableSignalBacktraces() {
  if (!signal_backtraces_enabled) {
    Vexa::PrepareBacktrace();
    for (const int signal : {SIGSEGV, SIGFPE, SIGABRT, SIGQUIT}) {
      SetAction(signal, BacktraceSignal);
    }
    signal_backtraces_enabled = true;
  }
  return true;
}

void Vexa::IgnoreFileSizeSignal() {
  SetAction(SIGXFSZ, SIG_IGN);
}
