// What each thread has of its own, where memory may run out.
#pragma once

#include <pthread.h>

#include <memory>
#include <new>

/// Returns this thread's T, which is made when the thread first asks and destroyed when the thread
/// ends (that of the main thread is never destroyed). Throws what T's constructor throws, and
/// std::bad_alloc; then the next call tries again.
///
/// A thread_local with a destructor cannot fail so: to register the destructor takes memory, and
/// where there is none the C library aborts.
template <class T>
T& PerThread() {
  static const pthread_key_t key = [] {
    pthread_key_t made = 0;
    if (pthread_key_create(&made, [](void* mine) { delete static_cast<T*>(mine); }) != 0) {
      throw std::bad_alloc();
    }
    return made;
  }();
  if (void* mine = pthread_getspecific(key)) {
    return *static_cast<T*>(mine);
  }
  auto made = std::make_unique<T>();
  if (pthread_setspecific(key, made.get()) != 0) {
    throw std::bad_alloc();
  }
  return *made.release();
}
