// What error handling needs to know of a parallel job. This class gives the answers of a single
// process that no parallel runtime started; a real runtime derives from it and installs itself.
#pragma once

#include <string>

#pragma GCC visibility push(default)

namespace Vexa {

class ParallelRuntime {
 public:
  virtual ~ParallelRuntime() = default;

  /// Whether rank and number of processes are known. If not, they are 0 and 1.
  virtual bool IsInitialized() const { return false; }
  virtual int Rank() const { return 0; }
  virtual int NumberOfProcesses() const { return 1; }

  /// Sends SIGUSR2 to the other processes of the job; see CachedOutput.
  virtual void RequestFlushOfOthers() const {}
  /// Tells whoever asked that this process has written its cached output.
  virtual void SayWritten() const {}
  /// Whether all other processes are known to have written since they were last asked, so that
  /// nobody has to wait for them. Allocates nothing.
  virtual bool OthersHaveWritten() const { return false; }
  /// Lines for a report that name the processes not known to have written; empty if there is
  /// nothing to say.
  virtual std::string OthersNotWritten() const { return ""; }

  /// Calls the runtime's error handler with the code, then ends all processes with it. Does not
  /// return; only that of a single process, which has nobody else to end, does.
  virtual void Abort(int /*code*/) const {}

  static const ParallelRuntime& Instance();
  /// The runtime is lent until another, or null for none, is installed.
  static void Install(const ParallelRuntime* runtime);
};

}  // namespace Vexa

#pragma GCC visibility pop
