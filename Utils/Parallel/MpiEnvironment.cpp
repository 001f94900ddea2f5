#include "Utils/Parallel/MpiEnvironment.hpp"

#include <mpi.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/ParallelRuntime.hpp"
#include "Utils/ErrorHandling/Require.hpp"

namespace {

// A failure of MPI is reported like any other. MyAbort() gives handlers of the world communicator
// their chance to tidy up before the job is aborted; this one has nothing to do then.
void ReportError(MPI_Comm*, int* code, ...) {
  if (MyAbortCalled_UncleanShutdown()) {
    return;
  }
  std::array<char, MPI_MAX_ERROR_STRING> text{};
  int length = 0;
  MPI_Error_string(*code, text.data(), &length);
  MyErr << "MPI failed: " << text.data() << "\n";
  MyAbort();
}

// Writes "rank 3", or "ranks 0-3, 7", of numbers that increase.
std::string Ranks(const std::vector<int>& ranks) {
  std::string text = ranks.size() == 1 ? "rank " : "ranks ";
  for (std::size_t first = 0; first < ranks.size();) {
    std::size_t last = first;
    while (last + 1 < ranks.size() && ranks[last + 1] == ranks[last] + 1) {
      ++last;
    }
    text += (first == 0 ? "" : ", ") + std::to_string(ranks[first]);
    if (last != first) {
      text += "-" + std::to_string(ranks[last]);
    }
    first = last + 1;
  }
  return text;
}

}  // namespace

// It asks MPI at the beginning: the answers do not change, and a process that fails should depend
// on little. That is also why the processes of a host tell each other through plain memory.
//
// The object belongs to MPI, as an attribute of the communicator that MPI_Finalize() clears first.
class MpiEnvironment::Runtime : public Vexa::ParallelRuntime {
 public:
  Runtime() {
    MPI_Comm_rank(MPI_COMM_WORLD, &mRank);
    MPI_Comm_size(MPI_COMM_WORLD, &mSize);
    MPI_Comm host = MPI_COMM_NULL;
    MPI_Comm_split_type(MPI_COMM_WORLD, MPI_COMM_TYPE_SHARED, 0, MPI_INFO_NULL, &host);
    FindNeighbours(host);
    ShareAnswers(host);
    MPI_Comm_free(&host);
    int key = MPI_KEYVAL_INVALID;
    MPI_Comm_create_keyval(MPI_COMM_NULL_COPY_FN, BeforeFinalize, &key, nullptr);
    MPI_Comm_set_attr(MPI_COMM_SELF, key, this);
    MPI_Comm_free_keyval(&key);  // the attribute keeps it
  }

  bool IsInitialized() const override { return true; }
  int Rank() const override { return mRank; }
  int NumberOfProcesses() const override { return mSize; }

  void RequestFlushOfOthers() const override {
    if (mpRequests != nullptr) {
      ++*mpRequests;
    }
    for (const Process& process : mHost) {
      if (process.mRank != mRank) {
        kill(static_cast<pid_t>(process.mId), SIGUSR2);
      }
    }
  }

  void SayWritten() const override {
    if (mpAnswers != nullptr) {
      // A process that ends adds no more output, so its answer is good for all requests to come.
      const bool isEnding = mIsFinalizing || MyAbortCalled_UncleanShutdown();
      mpAnswers[mHostRank] = isEnding ? sAllRequests : mpRequests->load();
    }
  }

  bool OthersHaveWritten() const override {
    return mHost.size() == static_cast<std::size_t>(mSize) &&
           std::all_of(mHost.begin(), mHost.end(),
                       [this](const Process& process) { return HasAnswered(process); });
  }

  std::string OthersNotWritten() const override {
    std::vector<int> silent;
    std::vector<int> elsewhere;
    auto next = mHost.begin();  // in the order of ranks, too
    for (int rank = 0; rank < mSize; ++rank) {
      if (next == mHost.end() || next->mRank != rank) {
        elsewhere.push_back(rank);
      } else if (!HasAnswered(*next++)) {
        silent.push_back(rank);
      }
    }
    if (silent.empty() && elsewhere.empty()) {
      return "";
    }
    return "The other processes were asked to write their cached output.\n" +
           (silent.empty() ? "" : "  did not answer: " + Ranks(silent) + "\n") +
           (elsewhere.empty() ? "" : "  not reached, on other hosts: " + Ranks(elsewhere) + "\n") +
           "What these have not written is lost.\n";
  }

  void Abort(int code) const override {
    MPI_Errhandler handler = MPI_ERRHANDLER_NULL;
    MPI_Comm_get_errhandler(MPI_COMM_WORLD, &handler);
    // MPI's own way to end a job puts a status of its own in the place of the code.
    if (handler != MPI_ERRORS_ARE_FATAL) {
      MPI_Comm_call_errhandler(MPI_COMM_WORLD, code);
    }
    MPI_Abort(MPI_COMM_WORLD, code);
  }

 private:
  struct Process {
    long mId;
    long mRank;  // in the world
  };
  using Atomic = std::atomic<int>;
  static_assert(Atomic::is_always_lock_free, "processes share it");
  static constexpr int sAllRequests = std::numeric_limits<int>::max();

  void FindNeighbours(MPI_Comm host) {
    int size = 0;
    MPI_Comm_size(host, &size);
    MPI_Comm_rank(host, &mHostRank);
    const Process self{getpid(), mRank};
    mHost.resize(size);
    MPI_Allgather(&self, 2, MPI_LONG, mHost.data(), 2, MPI_LONG, host);
  }

  // If no memory can be shared, the job runs all the same, and nobody will have answered.
  void ShareAnswers(MPI_Comm host) {
    MPI_Comm_set_errhandler(host, MPI_ERRORS_RETURN);
    const bool isFirst = mHostRank == 0;
    MPI_Aint bytes = isFirst ? (mHost.size() + 1) * sizeof(Atomic) : 0;
    void* memory = nullptr;
    int failed = MPI_Win_allocate_shared(bytes, sizeof(Atomic), MPI_INFO_NULL, host, &memory,
                                         &mWindow) != MPI_SUCCESS;
    MPI_Allreduce(MPI_IN_PLACE, &failed, 1, MPI_INT, MPI_MAX, host);
    if (failed != 0) {
      return;
    }
    int unit = 0;
    MPI_Win_shared_query(mWindow, 0, &bytes, &unit, &memory);
    mpRequests = static_cast<Atomic*>(memory);
    mpAnswers = mpRequests + 1;
    if (isFirst) {
      std::uninitialized_value_construct_n(mpRequests, mHost.size() + 1);
    }
    MPI_Barrier(host);
  }

  bool HasAnswered(const Process& process) const {
    return process.mRank == mRank ||
           (mpAnswers != nullptr && mpAnswers[&process - mHost.data()] >= *mpRequests);
  }

  // MPI_Finalize() waits for the other processes, and who waits there cannot answer a request:
  // what is cached is written first. A failure ends the job here, for MPI takes no exceptions.
  static int BeforeFinalize(MPI_Comm, int, void* attribute, void*) noexcept {
    auto* runtime = static_cast<Runtime*>(attribute);
    if (MyAbortCalled_UncleanShutdown()) {
      return MPI_SUCCESS;
    }
    runtime->mIsFinalizing = true;
    const bool isInstalled = &Vexa::ParallelRuntime::Instance() == runtime;
    if (isInstalled) {
      CachedOutput::FlushCachedOutput();
      CachedOutput::SayIfWritten();
    }
    if (runtime->mpRequests != nullptr) {
      MPI_Win_free(&runtime->mWindow);
    }
    if (isInstalled) {
      Vexa::ParallelRuntime::Install(nullptr);
    }
    delete runtime;
    return MPI_SUCCESS;
  }

  int mRank = 0;
  int mSize = 1;
  int mHostRank = 0;           // index in mHost
  std::vector<Process> mHost;  // all processes on this host
  bool mIsFinalizing = false;
  MPI_Win mWindow = MPI_WIN_NULL;
  // These lie in the window, or are null. The first counts the requests to write of all processes;
  // of the others each belongs to a process of mHost, and is the last request that it has answered.
  Atomic* mpRequests = nullptr;
  Atomic* mpAnswers = nullptr;
};

MpiEnvironment::MpiEnvironment(int& argc, char**& argv) {
  int isRunning = 0;
  int isOver = 0;
  MPI_Initialized(&isRunning);
  MPI_Finalized(&isOver);
  REQUIRE(!isOver, "MPI has been finalised; it cannot be started again in the same process");
  mStartedMpi = !isRunning;
  if (mStartedMpi) {
    MPI_Init(&argc, &argv);
  }
  Vexa::ParallelRuntime::Install(new Runtime);
  if (mStartedMpi) {
    MPI_Errhandler handler = MPI_ERRHANDLER_NULL;
    MPI_Comm_create_errhandler(ReportError, &handler);
    MPI_Comm_set_errhandler(MPI_COMM_WORLD, handler);
    MPI_Errhandler_free(&handler);  // the communicator keeps it
  }
}

MpiEnvironment::~MpiEnvironment() {
  int isOver = 0;
  MPI_Finalized(&isOver);
  // After MyAbort() the runtime is still asked for the rank by whoever writes a report.
  if (isOver || MyAbortCalled_UncleanShutdown()) {
    return;
  }
  if (mStartedMpi) {
    MPI_Finalize();
  } else {
    Vexa::ParallelRuntime::Install(nullptr);
  }
}
