#include "Utils/ErrorHandling/CachedOutput.hpp"

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
  // By index, since writing may register or unregister objects.
  for (std::size_t i = 0; i < Objects().size(); ++i) {
    try {
      Objects()[i]->WriteCache();
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
