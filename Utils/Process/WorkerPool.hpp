// Worker threads for pure functions of bytes. Everything else in the system is single-threaded.
#pragma once

#include <cstddef>
#include <exception>
#include <functional>

class WorkerPool;  // which the source file has

#pragma GCC visibility push(default)

namespace Vexa {

/// Threads that work may use, the calling one included: what the environment variable VEXA_THREADS
/// says, if that is a whole number of at least 1, else the number of processors that this process
/// may use (its affinity, and the quota of its control group).
std::size_t NumberOfThreads();

/// Tasks that are waited for together. They run on worker threads and, while it waits, on the
/// thread that added them; with one thread each runs where it is added. The workers are started at
/// the first use of them, and then wait for more.
///
/// Tasks share nothing that changes, and add no tasks. Only the thread that owns a group uses it.
class TaskGroup {
 public:
  TaskGroup() = default;
  /// Waits for the tasks. A failure that nobody has waited for is dropped.
  ~TaskGroup();
  TaskGroup(const TaskGroup&) = delete;
  TaskGroup& operator=(const TaskGroup&) = delete;

  /// Hands the task over. When many tasks are waiting, whatever group they belong to, the caller
  /// works on one before this returns, so that what waiting tasks hold in memory is bounded.
  void Add(std::function<void()> task);

  /// Returns when all tasks have ended. If some threw, the exception of one of them is thrown on.
  void Wait();

 private:
  friend class ::WorkerPool;

  bool mHasTasks = false;  // without any, the workers need not be started
  std::size_t mUnfinished = 0;
  std::exception_ptr mFailure;
};

}  // namespace Vexa

#pragma GCC visibility pop
