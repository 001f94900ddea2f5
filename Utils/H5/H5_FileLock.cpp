#include "Utils/H5/H5_FileLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <thread>

#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/H5/Handle.hpp"
#include "Utils/Process/Printable.hpp"

namespace Vexa_H5 {

namespace {

std::chrono::duration<double> Patience(20);

// Whether the library's last failure was that another program has the file locked. A file system
// that has no locks at all makes it fail with the same words and another errno.
bool IsLockFailure() {
  bool isLocked = false;
  const auto look = [](unsigned, const H5E_error2_t* error, void* found) -> herr_t {
    const std::string_view text = error->desc == nullptr ? "" : error->desc;
    static const std::string number = "errno = " + std::to_string(EWOULDBLOCK) + ",";
    if (text.find("lock file") != text.npos && text.find(number) != text.npos) {
      *static_cast<bool*>(found) = true;
    }
    return 0;
  };
  H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, look, &isLocked);
  return isLocked;
}

hid_t TryToOpen(const std::string& path, unsigned flags, hid_t fapl_id, bool& isLocked) {
  const MuteH5Errors muted;
  const hid_t file_id = H5Fopen(path.c_str(), flags, fapl_id);
  isLocked = file_id < 0 && IsLockFailure();
  if (file_id < 0 && !isLocked) {
    muted.Print();
  }
  return file_id;
}

// Opens a file that only readers have open without the library's lock. Ours keeps other writers
// out. Where the environment asks for locks, the library does not do without them.
hid_t PassReaders([[maybe_unused]] const std::string& path, [[maybe_unused]] unsigned flags,
                  [[maybe_unused]] hid_t fapl_id, [[maybe_unused]] LockWait& wait) {
  hid_t file_id = -1;
#if H5_VERSION_GE(1, 12, 1) || (H5_VERSION_GE(1, 10, 7) && !H5_VERSION_GE(1, 11, 0))
  SharedLock held(path);
  if (!held.IsHeld()) {
    return -1;
  }
  PropertyListHandle unlocked(H5Pcopy(fapl_id));
  REQUIRE(unlocked>=0, "H5Pcopy failed");
  const herr_t err = H5Pset_file_locking(unlocked, false, true);
  REQUIRE(err>=0, "H5Pset_file_locking failed");
  file_id = TryToOpen(path, flags, unlocked, wait.mIsLocked);
  if (file_id >= 0) {
    wait.mHeld = std::move(held);
    MyErr << "File '" << Printable(path) << "' is opened for writing while others read it\n";
  }
#endif
  return file_id;
}

void Announce(const std::string& path, LockWait::Clock::duration wait) {
  MyErr << "File '" << Printable(path) << "' is open in another program; waiting up to "
        << std::chrono::ceil<std::chrono::seconds>(wait).count() << " s for it\n";
}

}  // namespace

SharedLock::SharedLock(const std::string& path)
    : mDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (mDescriptor >= 0 && flock(mDescriptor, LOCK_SH | LOCK_NB) != 0) {
    close(std::exchange(mDescriptor, -1));
  }
}

SharedLock::~SharedLock() {
  if (mDescriptor >= 0) {
    close(mDescriptor);
  }
}

std::chrono::duration<double> LockPatience() {
  return Patience;
}

void SetLockPatience(std::chrono::duration<double> patience) {
  Patience = patience;
}

LockWait LockWait::Patient() {
  LockWait wait =
      Until(Clock::now() + std::chrono::duration_cast<Clock::duration>(Patience), false);
  wait.mEndsOnSIGTERM = true;
  return wait;
}

hid_t OpenPastLocks(const std::string& path, unsigned flags, hid_t fapl_id, LockWait* wait) {
  if (wait == nullptr || (flags & H5F_ACC_RDWR) == 0) {
    return H5Fopen(path.c_str(), flags, fapl_id);
  }
  while (true) {
    hid_t file_id = TryToOpen(path, flags, fapl_id, wait->mIsLocked);
    if (!wait->mIsLocked) {
      return file_id;
    }
    const LockWait::Clock::time_point now = LockWait::Clock::now();
    if (now >= wait->mUntil || (wait->mEndsOnSIGTERM && CachedOutput::IsEndRequested())) {
      file_id = wait->mPassesReaders ? PassReaders(path, flags, fapl_id, *wait) : -1;
      // Once more where a lock is a failure, which the library then reports.
      return file_id >= 0 || wait->mMayStayLocked ? file_id : H5Fopen(path.c_str(), flags, fapl_id);
    }
    if (!std::exchange(wait->mHasWaited, true)) {
      Announce(path, wait->mUntil - now);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

}  // namespace Vexa_H5
