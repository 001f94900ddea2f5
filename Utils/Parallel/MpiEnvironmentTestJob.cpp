// A job of several processes that ends in MyAbort() on the last rank, while the others work on from
// one safe point to the next. The argument makes a difference:
//   mpi     a call of MPI fails on that rank instead
//   wait    every other process waits in MPI, where it comes to no safe point
//   hold    all processes hold something back when they write
//   normal  nothing fails
//   own     the program starts MPI and finalises it, ignores its failures, and fails afterwards
#include <mpi.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/ParallelRuntime.hpp"
#include "Utils/Parallel/MpiEnvironment.hpp"

namespace {

struct Output : CachedOutputObject {
  bool HoldsBack() const override { return mHoldsBack; }
  void WriteCache() const override {
    std::ofstream("flushed" + std::to_string(Vexa::ParallelRuntime::Instance().Rank())) << ";";
  }
  bool mHoldsBack = false;
};

void SendToNobody() {
  MPI_Send(nullptr, 0, MPI_INT, Vexa::ParallelRuntime::Instance().NumberOfProcesses(), 0,
           MPI_COMM_WORLD);
}

[[noreturn]] void RunOwnMpi(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  MPI_Comm_set_errhandler(MPI_COMM_WORLD, MPI_ERRORS_RETURN);
  { const MpiEnvironment ended(argc, argv); }
  {
    const MpiEnvironment environment(argc, argv);
    SendToNobody();
    MPI_Finalize();
  }
  const MpiEnvironment tooLate(argc, argv);
  std::exit(0);
}

}  // namespace

int main(int argc, char** argv) {
  Output output;
  const std::string what = argv[1];
  output.mHoldsBack = what == "hold";
  if (what == "own") {
    RunOwnMpi(argc, argv);
  }
  const MpiEnvironment environment(argc, argv);
  const Vexa::ParallelRuntime& runtime = Vexa::ParallelRuntime::Instance();
  if (what == "normal") {
    return 0;
  }
  // Nobody has to wait that long if all answer.
  MyAbort_ChangeSleepSeconds(what == "wait" || what == "hold" ? 3 : 100);
  if (runtime.Rank() == runtime.NumberOfProcesses() - 1) {
    if (what == "mpi") {
      SendToNobody();
    }
    MyErr << "giving up\n";
    MyAbort();
  }
  if (what == "wait" && runtime.Rank() % 2 == 0) {
    MPI_Barrier(MPI_COMM_WORLD);
  }
  for (;;) {
    CachedOutput::FlushIfRequested();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}
