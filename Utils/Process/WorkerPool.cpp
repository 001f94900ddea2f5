#include "Utils/Process/WorkerPool.hpp"

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <condition_variable>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
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

// The processors' worth of time that the control group grants, rounded up; no limit if it tells
// none.
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

class WorkerPool {
 public:
  explicit WorkerPool(std::size_t workers) {
    try {
      for (std::size_t i = 0; i < workers; ++i) {
        mWorkers.emplace_back([this](const std::stop_token& stop) { Work(stop); });
      }
    } catch (const std::system_error&) {
      // A limit on processes or memory: those that were started do all the work.
    }
  }

  void Run(std::size_t count, const std::function<void(std::size_t)>& task) {
    {
      const std::lock_guard lock(mMutex);
      mpTask = &task;
      mCount = count;
      mNext = 0;
      mFailure = nullptr;
      mBusy = mWorkers.size();
      ++mRound;
    }
    mWakeUp.notify_all();
    RunTasks();
    std::unique_lock lock(mMutex);
    mAllDone.wait(lock, [this] { return mBusy == 0; });
    if (mFailure != nullptr) {
      std::rethrow_exception(mFailure);
    }
  }

 private:
  void RunTasks() {
    for (std::size_t i = mNext++; i < mCount; i = mNext++) {
      try {
        (*mpTask)(i);
      } catch (...) {
        const std::lock_guard lock(mMutex);
        mFailure = std::current_exception();
      }
    }
  }

  void Work(const std::stop_token& stop) {
    std::size_t round = 0;
    while (true) {
      {
        std::unique_lock lock(mMutex);
        if (!mWakeUp.wait(lock, stop, [&] { return mRound != round; })) {
          return;
        }
        round = mRound;
      }
      RunTasks();
      const std::lock_guard lock(mMutex);
      if (--mBusy == 0) {
        mAllDone.notify_one();
      }
    }
  }

  std::mutex mMutex;
  std::condition_variable_any mWakeUp;
  std::condition_variable mAllDone;
  std::size_t mRound = 0;
  std::size_t mBusy = 0;  // workers that have not ended their round
  std::size_t mCount = 0;
  std::atomic<std::size_t> mNext = 0;
  const std::function<void(std::size_t)>* mpTask = nullptr;
  std::exception_ptr mFailure;
  std::vector<std::jthread> mWorkers;  // last, so that they end before what they use
};

}  // namespace

std::size_t NumberOfThreads() {
  static const std::size_t threads = ChosenNumberOfThreads();
  return threads;
}

void ParallelFor(std::size_t count, const std::function<void(std::size_t)>& task) {
  if (count <= 1 || NumberOfThreads() == 1) {
    for (std::size_t i = 0; i < count; ++i) {
      task(i);
    }
    return;
  }
  // Never destroyed: the process may end while a failure is reported from anywhere.
  static WorkerPool& pool = *new WorkerPool(NumberOfThreads() - 1);
  pool.Run(count, task);
}
