// Allocation of element storage for MyVector and MyMap, counted process-wide when asked for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

#pragma GCC visibility push(default)

/// How much the containers hold, and held at their peak. Counted only while ProfilingEnabled is
/// set; switch it on before the first container is filled, or releases make the count wrap.
struct MyAllocatorProfiler {
  static inline bool ProfilingEnabled = false;
  static inline std::uint64_t NumBytesAllocated = 0;
  static inline std::uint64_t MaxBytesAllocated = 0;

  /// Storage for `count` elements, unconstructed. Throws std::bad_array_new_length when the size
  /// in bytes does not fit, std::bad_alloc when there is no memory.
  template <class T>
  static T* Allocate(std::size_t count) {
    if (count > static_cast<std::size_t>(-1) / sizeof(T)) {
      throw std::bad_array_new_length();
    }
    void* storage = ::operator new(count * sizeof(T), std::align_val_t(alignof(T)));
    CountAllocation(count * sizeof(T));
    return static_cast<T*>(storage);
  }

  /// Gives back what Allocate returned for the same count; the elements are destroyed already.
  template <class T>
  static void Release(T* storage, std::size_t count) noexcept {
    CountRelease(count * sizeof(T));
    ::operator delete(storage, std::align_val_t(alignof(T)));
  }

 private:
  static void CountAllocation(std::uint64_t bytes);
  static void CountRelease(std::uint64_t bytes) noexcept;
};

#pragma GCC visibility pop
