// Replaces operator new of a test program, so that memory can run out. Only one source of a program
// includes it.
#pragma once

#include <cstdlib>
#include <new>

/// Allocations of this thread until one fails; negative if none does.
inline thread_local int sAllocationsLeft = -1;

// Not inlined: compilers would see malloc() paired with delete.
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* storage = sAllocationsLeft >= 0 && sAllocationsLeft-- == 0 ? nullptr : std::malloc(size);
  return storage != nullptr ? storage : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* storage) noexcept {
  std::free(storage);
}
[[gnu::noinline]] void operator delete(void* storage, std::size_t) noexcept {
  std::free(storage);
}
