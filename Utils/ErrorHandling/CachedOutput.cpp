#include "Utils/ErrorHandling/CachedOutput.hpp"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <vector>

#include "Utils/ErrorHandling/FirstFailure.hpp"
#include "Utils/ErrorHandling/Handlers.hpp"
#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/ParallelRuntime.hpp"

namespace {

// The list is never destroyed, since objects of static storage unregister at exit.
std::vector<const CachedOutputObject*>& Objects() {
  static auto& objects = *new std::vector<const CachedOutputObject*>;
  return objects;
}

std::atomic<bool> sFlushRequested = false;
std::atomic<bool> sEndRequested = false;
std::atomic<bool> sIsFlushing = false;
bool sIsEnding = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");

class Flushing {
 public:
  ~Flushing() { sIsFlushing = mWasFlushing; }

 private:
  const bool mWasFlushing = sIsFlushing.exchange(true);
};

void NoteRequest(int signal) {
  (signal == SIGTERM ? sEndRequested : sFlushRequested) = true;
}

bool Install(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  // A write to a file that the signal interrupts goes on.
  action.sa_flags = SA_RESTART;
  return sigaction(signal, &action, nullptr) == 0;
}

[[maybe_unused]] const bool sHandlerInstalled =
    Vexa::LeavesHandlers() || Install(SIGUSR2, NoteRequest);

// Whoever waits for the process sees by which signal it ended. The signal may be blocked in this
// thread, since another one can have received it.
void EndBySIGTERM() {
  Install(SIGTERM, SIG_DFL);
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
  raise(SIGTERM);
}

}  // namespace

CachedOutputObject::CachedOutputObject() {
  Objects().push_back(this);
}

CachedOutputObject::~CachedOutputObject() {
  Unregister();
}

void CachedOutputObject::Unregister() noexcept {
  std::erase(Objects(), this);
}

void CachedOutput::FlushCachedOutput() {
  const Flushing flushing;
  FirstFailure failure;
  // Writing may register objects or unregister some, so each is looked up before its turn.
  for (const CachedOutputObject* object : std::vector(Objects())) {
    if (std::find(Objects().begin(), Objects().end(), object) == Objects().end()) {
      continue;
    }
    failure.Try([object] { object->WriteCache(); });
  }
  failure.Throw();
}

void CachedOutput::SayIfWritten() {
  if (std::none_of(Objects().begin(), Objects().end(),
                   [](const CachedOutputObject* object) { return object->HoldsBack(); })) {
    Vexa::ParallelRuntime::Instance().SayWritten();
  }
}

void CachedOutput::FlushCachedOutputOnAllProcessors() {
  Vexa::ParallelRuntime::Instance().RequestFlushOfOthers();
  FlushCachedOutput();
  SayIfWritten();
}

void CachedOutput::FlushIfRequested() {
  const bool isEndRequested = sEndRequested.load(std::memory_order_relaxed);
  const bool isRequested = isEndRequested || sFlushRequested.load(std::memory_order_relaxed);
  if (!isRequested || sIsFlushing || MyAbortCalled_UncleanShutdown()) {
    return;
  }
  sFlushRequested = false;
  sIsEnding = isEndRequested;
  FlushCachedOutput();
  SayIfWritten();
  if (isEndRequested) {
    EndBySIGTERM();
  }
}

void CachedOutput::FlushOnSIGUSR2() {
  Install(SIGUSR2, NoteRequest);
}

void CachedOutput::FlushAndEndOnSIGTERM() {
  Install(SIGTERM, NoteRequest);
}

bool CachedOutput::IsEndRequested() {
  return sEndRequested;
}

bool CachedOutput::IsEndingBySignal() {
  return sIsEnding;
}
