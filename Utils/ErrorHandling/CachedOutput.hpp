// Objects that hold output which is not in its file yet, and the ways to have them write it: at
// abnormal termination, and on SIGUSR2.
//
// The handler of SIGUSR2 only notes the request. Code that is at a point where all such objects are
// consistent calls CachedOutput::FlushIfRequested(), often: it costs a look at a flag.
#pragma once

/// Registered from its construction to its destruction.
class CachedOutputObject {
 public:
  CachedOutputObject();
  CachedOutputObject(const CachedOutputObject&) = delete;
  CachedOutputObject& operator=(const CachedOutputObject&) = delete;
  virtual ~CachedOutputObject();

  /// Writes what is held. Can be called at any time, also by a process that is about to end.
  virtual void WriteCache() const = 0;

 protected:
  /// Takes the object off the list early. For destructors that can fail: from here on a report of
  /// theirs does not ask the half-destroyed object to write.
  void Unregister() noexcept;
};

namespace CachedOutput {

/// Has all registered objects of this process write, in the order of their construction. One that
/// throws does not keep the others from writing; the first exception is thrown on at the end.
void FlushCachedOutput();

/// Sends the other processes of a parallel job the request, which they serve at their next safe
/// point, then flushes this one.
void FlushCachedOutputOnAllProcessors();

/// Flushes this process if SIGUSR2 came since the last call.
void FlushIfRequested();

}  // namespace CachedOutput
