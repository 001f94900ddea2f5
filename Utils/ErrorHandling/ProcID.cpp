#include "Utils/ErrorHandling/ProcID.hpp"

#include "Utils/ErrorHandling/ParallelRuntime.hpp"

std::string ProcID_() {
  const Vexa::ParallelRuntime& runtime = Vexa::ParallelRuntime::Instance();
  return "[" + (runtime.IsInitialized() ? std::to_string(runtime.Rank()) : "??") + "]";
}
