// Lets error handling know of a job that runs under MPI.
#pragma once

/// Installs itself as the ParallelRuntime, for as long as it and MPI live; one at a time per
/// process, made by all processes of the job.
///
/// It starts MPI, unless the program has done so. If it does, it also finalises MPI, and a failing
/// call on the world communicator is reported ("MPI failed: ...") and ends the job through
/// MyAbort(). An MPI that the program has started is the program's to finalise, before or after the
/// end of this object, and keeps its error handler. Fails if MPI has been finalised already.
///
/// The request to flush goes to the other processes as a signal, so it reaches those on the same
/// host only. Each of them serves it at its next safe point, which it does not come to while it
/// waits in a call of MPI; a process that aborts names in its report those that did not answer,
/// and those on other hosts. Whoever enters MPI_Finalize() writes its cached output before it
/// waits.
class MpiEnvironment {
 public:
  MpiEnvironment(int& argc, char**& argv);
  MpiEnvironment(const MpiEnvironment&) = delete;
  MpiEnvironment& operator=(const MpiEnvironment&) = delete;
  /// Finalises an MPI that it started, which waits for all processes; left out if MyAbort() was
  /// called, since then the others never get there.
  ~MpiEnvironment();

 private:
  class Runtime;
  bool mStartedMpi = false;
};
