// A job of several processes that ends in MyAbort() on the last rank, while the others work on from
// one safe point to the next. With the argument "mpi" a call of MPI fails on that rank instead,
// with "normal" nothing does.
#include <mpi.h>

#include <iostream>
#include <string>
#include <thread>

#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/ParallelRuntime.hpp"
#include "Utils/Parallel/MpiEnvironment.hpp"

namespace {

struct Output : CachedOutputObject {
  void WriteCache() const override {
    std::cout << "flushed by rank " + std::to_string(ParallelRuntime::Instance().Rank()) + "\n"
              << std::flush;
  }
};

}  // namespace

int main(int argc, char** argv) {
  const MpiEnvironment environment(argc, argv);
  const Output output;
  const ParallelRuntime& runtime = ParallelRuntime::Instance();
  const std::string what = argc > 1 ? argv[1] : "abort";
  if (what == "normal") {
    return 0;
  }
  if (runtime.Rank() == runtime.NumberOfProcesses() - 1) {
    MyAbort_ChangeSleepSeconds(1);
    if (what == "mpi") {
      MPI_Send(nullptr, 0, MPI_INT, runtime.NumberOfProcesses(), 0, MPI_COMM_WORLD);
    }
    MyErr << "giving up\n";
    MyAbort();
  }
  for (;;) {
    CachedOutput::FlushIfRequested();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}
