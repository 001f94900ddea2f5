#include "Utils/ErrorHandling/ParallelRuntime.hpp"

#include <cstddef>
#include <new>

namespace {
const Vexa::ParallelRuntime* spInstalled = nullptr;
}  // namespace

const Vexa::ParallelRuntime& Vexa::ParallelRuntime::Instance() {
  // Never destroyed: reports are written until the very end of the process. And not from the heap:
  // one of them says that there is no memory.
  alignas(Vexa::ParallelRuntime) static std::byte place[sizeof(Vexa::ParallelRuntime)];
  static const Vexa::ParallelRuntime& serial = *new (place) Vexa::ParallelRuntime;
  return spInstalled == nullptr ? serial : *spInstalled;
}

void Vexa::ParallelRuntime::Install(const Vexa::ParallelRuntime* runtime) {
  spInstalled = runtime;
}
