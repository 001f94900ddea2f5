#include "Utils/ErrorHandling/CachedOutput.hpp"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <exception>
#include <vector>

#include "Utils/ErrorHandling/ParallelRuntime.hpp"

namespace {

// Never destroyed: objects of static storage unregister at exit.
std::vector<const CachedOutputObject*>& Objects() {
  static auto& objects = *new std::vector<const CachedOutputObject*>;
  return objects;
}

std::atomic<bool> sFlushRequested = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");

void RequestFlush(int) {
  sFlushRequested = true;
}

[[maybe_unused]] const bool sHandlerInstalled = [] {
  struct sigaction action {};
  action.sa_handler = RequestFlush;
  // A write to a file that the signal interrupts goes on.
  action.sa_flags = SA_RESTART;
  return sigaction(SIGUSR2, &action, nullptr) == 0;
}();

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
  std::exception_ptr failure;
  // Writing may register objects or unregister some, so each is looked up before its turn.
  for (const CachedOutputObject* object : std::vector(Objects())) {
    if (std::find(Objects().begin(), Objects().end(), object) == Objects().end()) {
      continue;
    }
    try {
      object->WriteCache();
    } catch (...) {
      failure = failure == nullptr ? std::current_exception() : failure;
    }
  }
  if (failure != nullptr) {
    std::rethrow_exception(failure);
  }
}

void CachedOutput::FlushCachedOutputOnAllProcessors() {
  ParallelRuntime::Instance().RequestFlushOfOthers();
  FlushCachedOutput();
}

void CachedOutput::FlushIfRequested() {
  if (sFlushRequested.load(std::memory_order_relaxed)) {
    sFlushRequested = false;
    FlushCachedOutput();
  }
}
