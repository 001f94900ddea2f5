// Replaces operator new of a test program, so that memory can run out. Only one source of a program
// includes it.
#pragma once

#include <cstdlib>
#include <new>

/// So many allocations of this thread succeed before one fails; if it is negative, none fails.
inline thread_local int sAllocationsLeft = -1;

// These must not be inlined: compilers would see malloc() paired with delete.
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
