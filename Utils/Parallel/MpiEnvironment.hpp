// Lets error handling know of a job that runs under MPI.
#pragma once

#include <memory>

/// Starts MPI and installs itself as the ParallelRuntime, for as long as it lives; one per process,
/// made at the beginning of main() by all processes of the job. From then on a failing call on the
/// world communicator is reported ("MPI failed: ...") and ends the job through MyAbort().
///
/// The request to flush goes to the other processes as a signal, so it reaches those on the same
/// host only.
class MpiEnvironment {
 public:
  MpiEnvironment(int& argc, char**& argv);
  MpiEnvironment(const MpiEnvironment&) = delete;
  MpiEnvironment& operator=(const MpiEnvironment&) = delete;
  /// Finalises MPI, which waits for all processes; left out if MyAbort() was called, since then
  /// the others never get there.
  ~MpiEnvironment();

 private:
  class Runtime;
  std::unique_ptr<Runtime> mpRuntime;
};
