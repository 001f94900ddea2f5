// The store and the objects that it lends belong to one thread at a time. Threads may take turns if
// the program orders them; two that are inside at once are a mistake of the program's, which is
// reported before the second one has touched anything.
#pragma once

#include <atomic>

#pragma GCC visibility push(default)

namespace Vexa {

/// Every operation that a program calls holds one while it lasts. Operations may call each other.
class InsideStore {
 public:
  /// Fails with "The store is used by two threads at once". A thread that comes when another one
  /// has taken the store for good goes no further.
  InsideStore() {
    const int* nobody = nullptr;
    if (sDepth == 0 && !sInside.compare_exchange_strong(nobody, &sDepth, std::memory_order_acquire))
        [[unlikely]] {
      Refuse();
    }
    ++sDepth;
  }
  ~InsideStore() {
    if (--sDepth == 0) {
      sInside.store(nullptr, std::memory_order_release);
    }
  }
  InsideStore(const InsideStore&) = delete;
  InsideStore& operator=(const InsideStore&) = delete;

  /// Takes the store for this thread for good, which writes while the process ends. Waits ten
  /// seconds for another thread to leave. If it does not, says so through MyErr and returns false:
  /// its files must be left alone then. If another thread is ending the process through MyAbort,
  /// that one writes, and this one goes no further.
  static bool TakeForGood();

  /// Stops this thread if another one is ending the process. Handles call this where they come or
  /// go, since they do not close their files any more then.
  static void StopIfProcessEnds();

 private:
  static void Refuse();

  inline static constinit thread_local int sDepth = 0;                // operations of this thread
  inline static constinit std::atomic<const int*> sInside = nullptr;  // the depth of who is inside
};

}  // namespace Vexa

#pragma GCC visibility pop
