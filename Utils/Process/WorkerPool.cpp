#include "Utils/Process/WorkerPool.hpp"

#include <sched.h>

#include <algorithm>
#include <charconv>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <exception>
#include <fstream>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t sMostThreads = 256;

std::size_t ProcessorsByAffinity() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) == 0) {
    return static_cast<std::size_t>(CPU_COUNT(&set));
  }
  return std::thread::hardware_concurrency();
}

// Returns how many processors' worth of time the control group grants, rounded up, or the largest
// number if it sets no limit.
std::size_t ProcessorsByQuota() {
  std::ifstream file("/sys/fs/cgroup/cpu.max");
  std::string quota;
  double period = 0;
  if (!(file >> quota >> period) || quota == "max" || period <= 0) {
    return sMostThreads;
  }
  return static_cast<std::size_t>(std::atof(quota.c_str()) / period + 0.999);
}

std::size_t ChosenNumberOfThreads() {
  if (const char* text = std::getenv("VEXA_THREADS")) {
    std::size_t threads = 0;
    const std::string_view view(text);
    const auto [end, error] = std::from_chars(view.data(), view.data() + view.size(), threads);
    if (error == std::errc() && end == view.data() + view.size() && threads >= 1) {
      return std::min(threads, sMostThreads);
    }
  }
  return std::clamp<std::size_t>(std::min(ProcessorsByAffinity(), ProcessorsByQuota()), 1,
                                 sMostThreads);
}

}  // namespace

// The workers and the tasks that wait for one, first come, first served. Without workers each task
// runs where it is added.
class WorkerPool {
 public:
  static WorkerPool& Instance() {
    // The pool is never destroyed: the process may end while a failure is reported from anywhere.
    static WorkerPool& pool = *new WorkerPool(Vexa::NumberOfThreads() - 1);
    return pool;
  }

  void Add(Vexa::TaskGroup& group, std::function<void()> task) {
    std::unique_lock lock(mMutex);
    mWaiting.push_back({&group, std::move(task)});
    ++group.mUnfinished;
    mTaskWaits.notify_one();
    if (mWaiting.size() > mMostWaiting) {
      RunNext(lock);
    }
  }

  void Wait(Vexa::TaskGroup& group) {
    std::unique_lock lock(mMutex);
    while (group.mUnfinished > 0) {
      if (mWaiting.empty()) {
        mTaskEnded.wait(lock);
      } else {
        RunNext(lock);
      }
    }
  }

 private:
  struct Task {
    Vexa::TaskGroup* mpGroup;
    std::function<void()> mRun;
  };

  explicit WorkerPool(std::size_t workers) : mMostWaiting(workers == 0 ? 0 : 2 * (workers + 1)) {
    try {
      for (std::size_t i = 0; i < workers; ++i) {
        mWorkers.emplace_back([this] { Work(); });
      }
    } catch (const std::exception&) {
      // There is a limit on processes, or on memory: those that were started do all the work. If
      // this exception passed, they would be joined, and they never end.
    }
  }

  [[noreturn]] void Work() {
    std::unique_lock lock(mMutex);
    while (true) {
      mTaskWaits.wait(lock, [this] { return !mWaiting.empty(); });
      RunNext(lock);
    }
  }

  // The lock is held before and after, but not while the task runs.
  void RunNext(std::unique_lock<std::mutex>& lock) {
    Task task = std::move(mWaiting.front());
    mWaiting.pop_front();
    lock.unlock();
    std::exception_ptr failure;
    try {
      task.mRun();
    } catch (...) {
      failure = std::current_exception();
    }
    task.mRun = nullptr;
    lock.lock();
    if (failure != nullptr) {
      task.mpGroup->mFailure = failure;
    }
    if (--task.mpGroup->mUnfinished == 0) {
      mTaskEnded.notify_all();
    }
  }

  std::mutex mMutex;
  std::condition_variable mTaskWaits;
  std::condition_variable mTaskEnded;
  std::deque<Task> mWaiting;
  std::size_t mMostWaiting;
  std::vector<std::jthread> mWorkers;
};

std::size_t Vexa::NumberOfThreads() {
  static const std::size_t threads = ChosenNumberOfThreads();
  return threads;
}

Vexa::TaskGroup::~TaskGroup() {
  if (mHasTasks) {
    WorkerPool::Instance().Wait(*this);
  }
}

void Vexa::TaskGroup::Add(std::function<void()> task) {
  mHasTasks = true;
  WorkerPool::Instance().Add(*this, std::move(task));
}

void Vexa::TaskGroup::Wait() {
  if (mHasTasks) {
    WorkerPool::Instance().Wait(*this);
  }
  if (mFailure != nullptr) {
    std::rethrow_exception(std::exchange(mFailure, nullptr));
  }
}
