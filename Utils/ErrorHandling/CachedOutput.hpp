// Objects that hold output which is not in its file yet, and the ways to have them write it: at
// abnormal termination, on SIGUSR2 and, if the program asks for that, on SIGTERM.
//
// The handlers of signals only note the request. Code that is at a point where all such objects are
// consistent calls CachedOutput::FlushIfRequested(), often: it costs a look at a flag. In the
// store, such points are where an object is got for writing and where a handle goes.
#pragma once

#include "Utils/ErrorHandling/Handlers.hpp"

#pragma GCC visibility push(default)

/// An object is registered from its construction to its destruction.
class CachedOutputObject {
 public:
  CachedOutputObject();
  CachedOutputObject(const CachedOutputObject&) = delete;
  CachedOutputObject& operator=(const CachedOutputObject&) = delete;
  virtual ~CachedOutputObject();

  /// Writes what is held. Can be called at any time, also by a process that is about to end.
  virtual void WriteCache() const = 0;
  /// Whether something is held back that could not be written yet, without that being a failure.
  virtual bool HoldsBack() const { return false; }

 protected:
  /// Takes the object off the list early. For destructors that can fail: from here on a report of
  /// theirs does not ask the half-destroyed object to write.
  void Unregister() noexcept;
};

namespace CachedOutput {

/// Has all registered objects of this process write, in the order of their construction. One that
/// throws does not keep the others from writing; the first exception is thrown on at the end.
void FlushCachedOutput();

/// Tells the other processes of a parallel job that this one has written, unless an object of its
/// holds something back.
void SayIfWritten();

/// Sends the other processes of a parallel job the request, which they serve at their next safe
/// point, then flushes this one.
void FlushCachedOutputOnAllProcessors();

/// Marks a safe point: flushes this process if SIGUSR2 came since the last one. After SIGTERM, if
/// that was asked for, it flushes and then ends the process by this signal. Does nothing within a
/// flush, nor while the process is ending through MyAbort.
void FlushIfRequested();

/// From this call on, SIGUSR2 asks for a flush at the next safe point. A static initialiser calls
/// it, unless the process's handlers are to be left alone.
void FlushOnSIGUSR2();

/// From this call on, SIGTERM ends the process at the next safe point rather than at once.
/// Schedulers send it some time before they kill. A program whose loop neither gets objects for
/// writing nor lets handles go calls FlushIfRequested() in it. A failure to write is reported, and
/// ends the process as any failure does.
void FlushAndEndOnSIGTERM();

/// Whether SIGTERM asks for the end of the process, which has not come yet. Who waits for something
/// stops waiting then.
bool IsEndRequested();

/// Whether the flush that runs is the last one before the process ends by SIGTERM.
bool IsEndingBySignal();

}  // namespace CachedOutput

#pragma GCC visibility pop
