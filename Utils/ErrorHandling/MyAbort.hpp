// The end of every run that failed.
#pragma once

#include "Utils/ErrorHandling/Handlers.hpp"

#pragma GCC visibility push(default)

/// Has cached output written and ends the whole job with status 255, by exit(), so that destructors
/// of static objects run. In a parallel job every process is asked to write, and given some time
/// to do so before the job is aborted. A second call, for instance by a destructor that exit()
/// runs, ends the process at once; one in another thread waits for the end. A failure to write is
/// reported like any other.
[[noreturn]] void MyAbort() noexcept;

namespace Vexa {

/// Must be called by a thread that finds another one ending the process, and waits for the end. An
/// exit handler may wait for this very thread, so a minute after the last output was written this
/// ends the process itself.
[[noreturn]] void MyAbort_AwaitEnd() noexcept;
bool MyAbort_CalledByAnotherThread();
/// Says that the process, which is ending, has written its last output.
void MyAbort_LastOutputWritten() noexcept;

}  // namespace Vexa

/// These tell how long a parallel job waits at most for its processes to write; 10 seconds at
/// start. The wait ends early if all are known to have written. Otherwise the report names those
/// that are not.
void MyAbort_ChangeSleepSeconds(int seconds);

namespace Vexa {

int MyAbort_SleepSeconds();

}  // namespace Vexa

/// Whether the run is ending through MyAbort, so that clean-up at exit can leave out what would
/// hang or fail.
bool MyAbortCalled_UncleanShutdown();

#pragma GCC visibility pop
