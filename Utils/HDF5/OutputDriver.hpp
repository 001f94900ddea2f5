// A driver of the library, below a file that is created and of no use before it is whole, such as
// the output of a join.
#pragma once

#include <hdf5.h>

#include <cstddef>
#include <memory>

#include "Utils/HDF5/StackedDriver.hpp"
#include "Utils/Process/WriteBehind.hpp"

namespace Vexa_H5 {

/// Has files that are opened with this access property list go through the output driver, which
/// stands on the library's own driver for POSIX files: locks, names and bytes are that one's, and
/// so is the order of the writes. Fails with "H5Pset_driver failed".
///
/// Where the system takes values as fast as it can copy them, they go to it at once. A file that
/// keeps its writer waiting is written by a thread (WriteBehind), until that is no longer so, while
/// the caller reads and encodes what comes next.
///
/// What the thread could not write fails with a later write of values, a flush or the close; what
/// the library says then names the cause. Metadata alone never fail before: the library could not
/// even close the file any more.
///
/// In the same process a file cannot be open through this driver and through another one at once:
/// their locks exclude each other.
void SetOutputDriver(hid_t fapl_id);

/// A file as the driver knows it. The members do what the functions of an H5FD_class_t do.
class OutputFile : public StackedFile {
 public:
  static constexpr const char* sName = "output";
  static constexpr int sValue = 78;

  /// The pace says how the file was written to before.
  explicit OutputFile(H5FD_t* below, const Vexa::WritePace& pace = {})
      : StackedFile(below), mEnd(FileEnd()), mPace(pace) {}

  static H5FD_t* Open(const char* name, unsigned flags, hid_t, haddr_t maxAddress);

  haddr_t End(H5FD_mem_t) { return mEnd; }
  herr_t Read(H5FD_mem_t type, hid_t dxpl_id, haddr_t address, std::size_t size, void* buffer);
  herr_t Write(H5FD_mem_t type, hid_t dxpl_id, haddr_t address, std::size_t size,
               const void* buffer);
  herr_t Truncate(hid_t dxpl_id, hbool_t isClosing);
  herr_t Flush(hid_t dxpl_id, hbool_t) { return Settle(dxpl_id); }
  herr_t Finish() { return Settle(H5P_DEFAULT); }

 private:
  herr_t Settle(hid_t dxpl_id);
  void ChooseWriter(hid_t dxpl_id);
  herr_t WriteAtOnce(H5FD_mem_t type, hid_t dxpl_id, haddr_t address, std::size_t size,
                     const void* buffer);

  haddr_t mEnd;                                 // of the file as the library sees it
  Vexa::WritePace mPace;                        // of what is written at once
  bool mMayStart = true;                        // a thread
  std::unique_ptr<Vexa::WriteBehind> mpBehind;  // while there is one
};

}  // namespace Vexa_H5
