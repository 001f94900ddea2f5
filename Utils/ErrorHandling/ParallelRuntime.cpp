#include "Utils/ErrorHandling/ParallelRuntime.hpp"

namespace {
const ParallelRuntime* pInstalled = nullptr;
}  // namespace

const ParallelRuntime& ParallelRuntime::Instance() {
  // Never destroyed: reports are written until the very end of the process.
  static const ParallelRuntime& serial = *new ParallelRuntime;
  return pInstalled == nullptr ? serial : *pInstalled;
}

void ParallelRuntime::Install(const ParallelRuntime* runtime) {
  pInstalled = runtime;
}
