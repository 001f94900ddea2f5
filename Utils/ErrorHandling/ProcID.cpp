#include "Utils/ErrorHandling/ProcID.hpp"

#include "Utils/ErrorHandling/ParallelRuntime.hpp"

std::string ProcID_() {
  const ParallelRuntime& runtime = ParallelRuntime::Instance();
  return "[" + (runtime.IsInitialized() ? std::to_string(runtime.Rank()) : "??") + "]";
}
