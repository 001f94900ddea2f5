#include "Utils/ErrorHandling/ParallelRuntime.hpp"

#include <cstddef>
#include <new>

namespace {
const ParallelRuntime* spInstalled = nullptr;
}  // namespace

const ParallelRuntime& ParallelRuntime::Instance() {
  // Never destroyed: reports are written until the very end of the process. And not from the heap:
  // one of them says that there is no memory.
  alignas(ParallelRuntime) static std::byte place[sizeof(ParallelRuntime)];
  static const ParallelRuntime& serial = *new (place) ParallelRuntime;
  return spInstalled == nullptr ? serial : *spInstalled;
}

void ParallelRuntime::Install(const ParallelRuntime* runtime) {
  spInstalled = runtime;
}
