#include "Utils/HDF5/FileLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <thread>

#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/Handle.hpp"
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

void Announce(const std::string& path, LockWait::Clock::duration wait) {
  MyErr << "File '" << Vexa::Printable(path) << "' is open in another program; waiting up to "
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
  struct Search {
    std::string_view mCall;
    std::optional<int> mFound;
  } search{call, std::nullopt};
  const auto look = [](unsigned, const H5E_error2_t* error, void* data) -> herr_t {
    auto& wanted = *static_cast<Search*>(data);
    const std::string_view text = error->desc == nullptr ? "" : error->desc;
    constexpr std::string_view before = "errno = ";
    const std::size_t at = text.find(before);
    if (at != text.npos && text.find(wanted.mCall) != text.npos) {
      wanted.mFound = std::atoi(text.data() + at + before.size());
    }
    return 0;
  };
  H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, look, &search);
  return search.mFound;
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
      Announce(path, wait->mUntil - now);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

}  // namespace Vexa_H5
