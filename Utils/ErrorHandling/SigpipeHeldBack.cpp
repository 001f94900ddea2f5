#include "Utils/ErrorHandling/SigpipeHeldBack.hpp"

#include <cerrno>
#include <ctime>

namespace {

sigset_t OnlySigpipe() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  return set;
}

bool IsPending() {
  sigset_t pending;
  sigemptyset(&pending);
  sigpending(&pending);
  return sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

SigpipeHeldBack::SigpipeHeldBack() : mWasPending(IsPending()) {
  const sigset_t sigpipe = OnlySigpipe();
  pthread_sigmask(SIG_BLOCK, &sigpipe, &mMask);
}

SigpipeHeldBack::~SigpipeHeldBack() {
  const int error = errno;
  // A signal that was pending before is the program's.
  if (!mWasPending && IsPending()) {
    const sigset_t sigpipe = OnlySigpipe();
    const timespec noTime{};
    while (sigtimedwait(&sigpipe, nullptr, &noTime) < 0 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &mMask, nullptr);
  errno = error;
}
