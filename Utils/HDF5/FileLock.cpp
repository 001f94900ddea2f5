#include "Utils/HDF5/FileLock.hpp"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstdlib>
#include <thread>
#include <utility>

#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/Library.hpp"
#include "Utils/Process/Printable.hpp"

namespace Vexa_H5 {

namespace {

std::chrono::duration<double> sPatience(20);

using Opener = std::function<hid_t(hid_t fapl_id)>;

// A file system that has no locks at all makes the library fail with the same words as a lock does,
// and another errno.
hid_t TryToOpen(const Opener& open, hid_t fapl_id, bool& isLocked) {
  const MuteH5Errors muted;
  const hid_t file_id = open(fapl_id);
  isLocked = file_id < 0 && SystemErrorOf("lock file") == EWOULDBLOCK;
  if (file_id < 0 && !isLocked) {
    muted.Print();
  }
  return file_id;
}

// Opens a file that only readers have open without the library's lock. Ours keeps other writers
// out. Where the environment asks for locks, the library does not do without them.
hid_t PassReaders([[maybe_unused]] const std::string& path, [[maybe_unused]] const Opener& open,
                  [[maybe_unused]] hid_t fapl_id, [[maybe_unused]] LockWait& wait) {
  hid_t file_id = -1;
#if H5_VERSION_GE(1, 12, 1) || (H5_VERSION_GE(1, 10, 7) && !H5_VERSION_GE(1, 11, 0))
  SharedLock held(path);
  if (!held.IsTaken()) {
    return -1;
  }
  PropertyListHandle unlocked(H5Pcopy(fapl_id));
  REQUIRE(unlocked>=0, "H5Pcopy failed");
  const herr_t err = H5Pset_file_locking(unlocked, false, true);
  REQUIRE(err>=0, "H5Pset_file_locking failed");
  file_id = TryToOpen(open, unlocked, wait.mIsLocked);
  if (file_id >= 0) {
    wait.mSharedLock = std::move(held);
    MyErr << "File '" << Vexa::Printable(path) << "' is opened for writing while others read it\n";
  }
#endif
  return file_id;
}

}  // namespace

SharedLock::SharedLock(const std::string& path)
    : mDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (flock(mDescriptor, LOCK_SH | LOCK_NB) != 0) {
    mDescriptor = Vexa::Descriptor();
  }
}

std::chrono::duration<double> LockPatience() {
  return sPatience;
}

void SetLockPatience(std::chrono::duration<double> patience) {
  sPatience = patience;
}

LockWait LockWait::Patient() {
  LockWait wait =
      Until(Clock::now() + std::chrono::duration_cast<Clock::duration>(sPatience), false);
  wait.mEndsOnSIGTERM = true;
  return wait;
}

std::optional<int> SystemErrorOf(std::string_view call) {
  std::optional<int> found;
  for (const std::string& text : ErrorDescriptions(H5E_DEFAULT)) {
    constexpr std::string_view before = "errno = ";
    const std::size_t at = text.find(before);
    if (at != text.npos && text.find(call) != text.npos) {
      found = std::atoi(text.c_str() + at + before.size());
    }
  }
  return found;
}

hid_t OpenPastLocks(const std::string& path, const Opener& open, hid_t fapl_id, LockWait* wait) {
  if (wait == nullptr) {
    return open(fapl_id);
  }
  while (true) {
    hid_t file_id = TryToOpen(open, fapl_id, wait->mIsLocked);
    if (!wait->mIsLocked) {
      return file_id;
    }
    const LockWait::Clock::time_point now = LockWait::Clock::now();
    if (now >= wait->mUntil || (wait->mEndsOnSIGTERM && CachedOutput::IsEndRequested())) {
      file_id = wait->mPassesReaders ? PassReaders(path, open, fapl_id, *wait) : -1;
      // Where a lock is a failure, the library meets it once more and reports it.
      return file_id >= 0 || wait->mMayStayLocked ? file_id : open(fapl_id);
    }
    if (!std::exchange(wait->mHasWaited, true)) {
      MyErr << "File '" << Vexa::Printable(path) << "' is open in another program; waiting up to "
            << std::chrono::ceil<std::chrono::seconds>(wait->mUntil - now).count() << " s for it\n";
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

}  // namespace Vexa_H5
