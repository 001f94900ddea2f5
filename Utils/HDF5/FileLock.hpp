// What other programs' locks mean to a file that is to be opened for writing. The library locks
// each file that it opens, shared for reading and alone for writing, and does not wait: while
// anybody looks at a file, opening it for writing fails at once. Here such a failure is told from
// all others, and waited out.
#pragma once

#include <hdf5.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Utils/Process/Files.hpp"

#pragma GCC visibility push(default)

namespace Vexa_H5 {

/// A SharedLock is a lock on a file, apart from the library's: other programs can have it at the
/// same time to read the file, none to write to it.
class SharedLock {
 public:
  SharedLock() = default;
  /// Takes the lock if no program has the file open for writing, without waiting.
  explicit SharedLock(const std::string& path);
  bool IsTaken() const { return mDescriptor >= 0; }

 private:
  Vexa::Descriptor mDescriptor;
};

/// A LockWait says what an opening for writing does about a lock, and then what came of it.
struct LockWait {
  using Clock = std::chrono::steady_clock;

  /// Tries once, and takes a locked file for an answer.
  static LockWait None() { return {{}, false, true, false, {}}; }
  /// Tries once, without the lock if only readers have the file open.
  static LockWait PassReaders() { return {{}, true, true, false, {}}; }
  /// Tries until then; at last without the lock if only readers have the file open.
  static LockWait Until(Clock::time_point end, bool mayStayLocked) {
    return {end, true, mayStayLocked, false, {}};
  }
  /// Tries for as long as LockPatience says, or until SIGTERM asks for the end of the process. What
  /// is locked after that is a failure.
  static LockWait Patient();

  Clock::time_point mUntil{};
  bool mPassesReaders = false;
  bool mMayStayLocked = false;  // else it is a failure
  bool mEndsOnSIGTERM = false;
  SharedLock mSharedLock{};  // to be kept while the file is open, if it was opened without a lock
  bool mIsLocked = false;    // the file was not opened, because of a lock
  bool mHasWaited = false;   // others may have changed the file meanwhile
  bool mIsNew = false;       // the file had nothing in it
  bool mIsCreated = false;   // nothing had its name
};

/// These tell how long a file is waited for that must be opened for writing; 20 seconds at start.
std::chrono::duration<double> LockPatience();
void SetLockPatience(std::chrono::duration<double> patience);

/// Returns what `open` returns, which opens the file for writing with the access property list that
/// it is given, and may find it locked; a null `wait` leaves everything to the library. The
/// library's own report of a failure is left out where the failure is a lock that is to be waited
/// for, or may stay.
hid_t OpenPastLocks(const std::string& path, const std::function<hid_t(hid_t fapl_id)>& open,
                    hid_t fapl_id, LockWait* wait);

/// Returns the errno of the system's call with which the library's last failure began, if the
/// library's words for that call ("lock file", "open file") contain `call`.
std::optional<int> SystemErrorOf(std::string_view call);

}  // namespace Vexa_H5

#pragma GCC visibility pop
