// A driver of the library, below a file that stays readable while it is written: whoever opens the
// file after the process was killed, at whatever moment, finds what the last flush wrote.
#pragma once

#include <hdf5.h>

#include <cstdint>

namespace Vexa_H5 {

/// At most this many bytes of one file wait in memory for its next flush. What exceeds them goes to
/// the file before its time, and only a kill between that and the end of the next flush can tell.
inline constexpr std::uint64_t sMostPendingBytes = 32 * 1024 * 1024;

/// Has files that are opened with this access property list go through the committing driver, which
/// stands on the library's own driver for POSIX files: locks, names and bytes are that one's.
///
/// The library changes a file in place: it writes chunks to room that others gave up, and the
/// indices that lead to them later, one after the other. A process that is killed between two of
/// these writes leaves chunks that are lost or a file that cannot be opened. This driver divides
/// the writes. Those beyond the end that the file had at the last flush go to the file at once:
/// nothing leads there yet. Those into the file wait in memory until the library has flushed
/// (H5Fflush or H5Fclose), and then go out in a burst of a few large writes, which takes some
/// microseconds. A file that was created has nothing in it until the first flush, which writes it
/// in one piece.
///
/// When the library could not hand over all of its metadata, the flush fails and the file stays as
/// it was at the one before; a later flush tries again.
///
/// In the same process a file cannot be open through this driver and through another one at once:
/// their locks exclude each other. Fails with "H5Pset_driver failed".
void SetCommittingDriver(hid_t fapl_id);

/// While an object of this class lives, a file of this driver that is closed stays as it was at its
/// last flush. It is made to close a file that cannot be flushed.
class DiscardUnflushed {
 public:
  DiscardUnflushed() { sIsActive = true; }
  ~DiscardUnflushed() { sIsActive = false; }
  DiscardUnflushed(const DiscardUnflushed&) = delete;
  DiscardUnflushed& operator=(const DiscardUnflushed&) = delete;
  static bool IsActive() { return sIsActive; }

 private:
  inline static bool sIsActive = false;
};

}  // namespace Vexa_H5
