// Worker threads for pure functions of bytes. Everything else in the system is single-threaded.
#pragma once

#include <cstddef>
#include <functional>

/// Threads that work may use, the calling one included: what the environment variable VEXA_THREADS
/// says, if that is a whole number of at least 1, else the number of processors that this process
/// may use (its affinity, and the quota of its control group).
std::size_t NumberOfThreads();

/// Calls task(0) ... task(count-1), each once, on up to NumberOfThreads() threads, and returns when
/// all have ended. The workers are started at the first call that has use for them, and then wait
/// for the next; with one thread none is started. If tasks throw, the exception of one of them is
/// thrown on after all have ended. Tasks must not call ParallelFor.
void ParallelFor(std::size_t count, const std::function<void(std::size_t)>& task);
