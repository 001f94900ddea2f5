#include "Utils/HDF5/OutputDriver.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <new>

#include "Utils/HDF5/FilePieces.hpp"

namespace Vexa_H5 {

H5FD_t* OutputFile::Open(const char* name, unsigned flags, hid_t, haddr_t maxAddress) {
  H5FD_t* const below = OpenPosixFile(name, flags, maxAddress);
  if (below == nullptr) {
    return nullptr;
  }
  H5FD_t* const file = new (std::nothrow) OutputFile(below);
  if (file == nullptr) {
    H5FDclose(below);
  }
  return file;
}

herr_t OutputFile::Read(H5FD_mem_t type, hid_t dxpl_id, haddr_t address, std::size_t size,
                        void* buffer) {
  return Settle(dxpl_id) < 0 ? -1 : ReadBelow(type, dxpl_id, address, size, buffer);
}

herr_t OutputFile::Write(H5FD_mem_t type, hid_t dxpl_id, haddr_t address, std::size_t size,
                         const void* buffer) {
  const bool isRaw = type == H5FD_MEM_DRAW;
  if (isRaw) {
    ChooseWriter(dxpl_id);
  }
  const haddr_t endBefore = mEnd;
  mEnd = std::max(mEnd, address + size);
  if (!mpBehind) {
    return WriteAtOnce(type, dxpl_id, address, size, buffer);
  }
  // The library leaves gaps for metadata that it writes later. Nothing was written beyond the end.
  static constexpr std::array<unsigned char, FilePieces::sBytesWorthAWrite> nothing{};
  if (address > endBefore && address - endBefore <= nothing.size()) {
    mpBehind->Write(endBefore, nothing.data(), address - endBefore);
  }
  const bool isTaken = mpBehind->Write(address, static_cast<const unsigned char*>(buffer), size);
  return isTaken || !isRaw ? 0 : Settle(dxpl_id);
}

herr_t OutputFile::Truncate(hid_t dxpl_id, hbool_t isClosing) {
  if (Settle(dxpl_id) < 0) {
    return -1;
  }
  mEnd = Below()->cls->get_eoa(Below(), H5FD_MEM_DEFAULT);
  // The driver below does not know how far the thread has written.
  if (ftruncate(Descriptor(), static_cast<off_t>(mEnd)) == 0) {
    return 0;
  }
  Below()->cls->truncate(Below(), dxpl_id, isClosing);
  return -1;
}

// Waits for the thread. After a failure the library tries again, to say why.
herr_t OutputFile::Settle(hid_t dxpl_id) {
  if (!mpBehind || mpBehind->Wait()) {
    return 0;
  }
  const Vexa::WriteBehind::Piece failed = mpBehind->Failed();
  WriteBelow(H5FD_MEM_DRAW, dxpl_id, failed.mAddress, failed.mSize, failed.mBytes);
  return -1;
}

void OutputFile::ChooseWriter(hid_t dxpl_id) {
  if (mpBehind) {
    mPace = mpBehind->Pace();
    if (!mPace.IsSlow() && Settle(dxpl_id) >= 0) {
      mpBehind.reset();
    }
  } else if (mPace.IsSlow() && mMayStart) {
    try {
      mpBehind = std::make_unique<Vexa::WriteBehind>(Descriptor(), mPace);
    } catch (const std::exception&) {
      mMayStart = false;  // there is a limit on processes, or on memory
    }
  }
}

herr_t OutputFile::WriteAtOnce(H5FD_mem_t type, hid_t dxpl_id, haddr_t address, std::size_t size,
                               const void* buffer) {
  const Vexa::WriteTimer timer;
  const herr_t err = WriteBelow(type, dxpl_id, address, size, buffer);
  mPace.Add(size, timer.SecondsIfWaiting());
  return err;
}

void SetOutputDriver(hid_t fapl_id) {
  SetStackedDriver<OutputFile>(fapl_id);
}

}  // namespace Vexa_H5
