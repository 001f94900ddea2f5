#include "Utils/Containers/MyAllocatorProfiler.hpp"

#include <algorithm>

void MyAllocatorProfiler::CountAllocation(std::uint64_t bytes) {
  if (ProfilingEnabled) {
    NumBytesAllocated += bytes;
    MaxBytesAllocated = std::max(MaxBytesAllocated, NumBytesAllocated);
  }
}

void MyAllocatorProfiler::CountRelease(std::uint64_t bytes) noexcept {
  if (ProfilingEnabled) {
    NumBytesAllocated -= bytes;
  }
}
