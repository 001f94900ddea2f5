#include "Utils/Parallel/MpiEnvironment.hpp"

#include <mpi.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <vector>

#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/ParallelRuntime.hpp"

namespace {

// A failure of MPI is reported like any other. MyAbort() gives handlers of the world communicator
// their chance to tidy up before the job is aborted; this one has nothing to do then, where MPI's
// default would end the job at once, with a status of its own.
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

void InstallErrorHandler() {
  MPI_Errhandler handler = MPI_ERRHANDLER_NULL;
  MPI_Comm_create_errhandler(ReportError, &handler);
  MPI_Comm_set_errhandler(MPI_COMM_WORLD, handler);
  MPI_Errhandler_free(&handler);  // the communicator keeps it
}

}  // namespace

// Asks MPI once: its answers do not change, and a process that fails should depend on little.
class MpiEnvironment::Runtime : public ParallelRuntime {
 public:
  Runtime() {
    MPI_Comm_rank(MPI_COMM_WORLD, &mRank);
    MPI_Comm_size(MPI_COMM_WORLD, &mSize);
    FindNeighbours();
  }

  bool IsInitialized() const override { return true; }
  int Rank() const override { return mRank; }
  int NumberOfProcesses() const override { return mSize; }

  void RequestFlushOfOthers() const override {
    for (const long process : mNeighbours) {
      kill(static_cast<pid_t>(process), SIGUSR2);
    }
  }

  void Abort(int code) const override {
    MPI_Comm_call_errhandler(MPI_COMM_WORLD, code);
    MPI_Abort(MPI_COMM_WORLD, code);
  }

 private:
  void FindNeighbours() {
    MPI_Comm host = MPI_COMM_NULL;
    MPI_Comm_split_type(MPI_COMM_WORLD, MPI_COMM_TYPE_SHARED, 0, MPI_INFO_NULL, &host);
    int size = 0;
    int rank = 0;
    MPI_Comm_size(host, &size);
    MPI_Comm_rank(host, &rank);
    const long self = getpid();
    mNeighbours.resize(size);
    MPI_Allgather(&self, 1, MPI_LONG, mNeighbours.data(), 1, MPI_LONG, host);
    mNeighbours.erase(mNeighbours.begin() + rank);
    MPI_Comm_free(&host);
  }

  int mRank = 0;
  int mSize = 1;
  std::vector<long> mNeighbours;  // process ids of the others on this host
};

MpiEnvironment::MpiEnvironment(int& argc, char**& argv) {
  MPI_Init(&argc, &argv);
  mpRuntime = std::make_unique<Runtime>();
  ParallelRuntime::Install(mpRuntime.get());
  InstallErrorHandler();
}

MpiEnvironment::~MpiEnvironment() {
  if (!MyAbortCalled_UncleanShutdown()) {
    ParallelRuntime::Install(nullptr);
    MPI_Finalize();
  } else {
    // Still to be asked for the rank by whoever writes a report on the way out.
    static_cast<void>(mpRuntime.release());
  }
}
