#pragma once

#include <csignal>

/// While an object of this class lives, a write of this thread to a pipe that nobody reads fails
/// with an error instead of ending the process by SIGPIPE. A report thus gets on to the error file
/// and to the process's proper end. What the program does about the signal elsewhere stays as it
/// is.
class SigpipeHeldBack {
 public:
  SigpipeHeldBack();
  ~SigpipeHeldBack();
  SigpipeHeldBack(const SigpipeHeldBack&) = delete;
  SigpipeHeldBack& operator=(const SigpipeHeldBack&) = delete;

 private:
  bool mWasPending;
  sigset_t mMask{};  // of the thread, as it was before
};
