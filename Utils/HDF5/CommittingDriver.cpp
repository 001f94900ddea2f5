#include "Utils/HDF5/CommittingDriver.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <new>
#include <utility>
#include <vector>

#include "Utils/HDF5/FilePieces.hpp"
#include "Utils/HDF5/LittleEndian.hpp"
#include "Utils/HDF5/StackedDriver.hpp"

using namespace Vexa_H5;

namespace {

// A file that ends behind its superblock has no group, so nobody can open it.
constexpr haddr_t sSuperblockBytes = 48;

// The checksum of metadata: Bob Jenkins's lookup3 (hashlittle, with an initial value of 0), of 44
// bytes here (HDF5 File Format Specification, "Superblock" of version 3).
std::uint32_t ChecksumOfSuperblock(const unsigned char* bytes) {
  const auto word = [bytes](int i) {
    return static_cast<std::uint32_t>(LittleEndian(bytes + 4 * i, 4));
  };
  std::uint32_t a = 0xdeadbeef + 44;
  std::uint32_t b = a;
  std::uint32_t c = a;
  for (int i = 0; i < 9; i += 3) {
    a += word(i);
    b += word(i + 1);
    c += word(i + 2);
    a = (a - c) ^ std::rotl(c, 4), c += b;
    b = (b - a) ^ std::rotl(a, 6), a += c;
    c = (c - b) ^ std::rotl(b, 8), b += a;
    a = (a - c) ^ std::rotl(c, 16), c += b;
    b = (b - a) ^ std::rotl(a, 19), a += c;
    c = (c - b) ^ std::rotl(b, 4), b += a;
  }
  a += word(9);
  b += word(10);
  c = (c ^ b) - std::rotl(b, 14);
  a = (a ^ c) - std::rotl(c, 11);
  b = (b ^ a) - std::rotl(a, 25);
  c = (c ^ b) - std::rotl(b, 16);
  a = (a ^ c) - std::rotl(c, 4);
  b = (b ^ a) - std::rotl(a, 14);
  return (c ^ b) - std::rotl(b, 24);
}

// In a superblock of version 3, which other writers make, the library marks a file as open for
// writing, and refuses a file that is so marked. What is committed can be read at any time, so it
// carries no mark.
void ClearWriteMark(FilePieces::Bytes& beginning) {
  constexpr std::size_t version = 8;
  constexpr std::size_t mark = 11;
  constexpr std::size_t checksum = sSuperblockBytes - 4;
  if (beginning.size() < sSuperblockBytes || beginning[0] != 0x89 || beginning[version] != 3) {
    return;
  }
  beginning[mark] = 0;
  const std::uint32_t sum = ChecksumOfSuperblock(beginning.data());
  for (std::size_t i = 0; i < 4; ++i) {
    beginning[checksum + i] = static_cast<unsigned char>(sum >> 8 * i);
  }
}

// A file as this driver knows it.
class CommittingFile : public StackedFile {
 public:
  static constexpr const char* sName = "committing";
  [[maybe_unused]] static constexpr int sValue = 77;  // since HDF5 1.14

  explicit CommittingFile(H5FD_t* below)
      : StackedFile(below), mEnd(FileEnd()), mCommittedEnd(mEnd) {}

  static H5FD_t* Open(const char* name, unsigned flags, hid_t, haddr_t maxAddress) {
    // The library truncates a file before it asks for its lock. Only an empty file is made a new
    // one here; that it is empty still is seen when something is written to it.
    const bool mustBeEmpty = (flags & H5F_ACC_TRUNC) != 0;
    const unsigned harmless = flags & ~(H5F_ACC_TRUNC | H5F_ACC_CREAT);
    H5FD_t* const below = OpenPosixFile(name, mustBeEmpty ? harmless : flags, maxAddress);
    if (below == nullptr) {
      return nullptr;
    }
    const bool isEmpty = below->cls->get_eof(below, H5FD_MEM_DEFAULT) == 0;
    H5FD_t* const file =
        mustBeEmpty && !isEmpty ? nullptr : new (std::nothrow) CommittingFile(below);
    if (file == nullptr) {
      H5FDclose(below);
    }
    return file;
  }

  haddr_t End(H5FD_mem_t) { return mEnd; }

  herr_t Read(H5FD_mem_t type, hid_t dxpl_id, haddr_t address, std::size_t size, void* buffer) {
    const herr_t err = ReadBelow(type, dxpl_id, address, size, buffer);
    if (err >= 0 && !mPending.IsEmpty()) {
      mPending.Overlay(address, static_cast<unsigned char*>(buffer), size);
    }
    return err;
  }

  herr_t Write(H5FD_mem_t type, hid_t dxpl_id, haddr_t address, std::size_t size,
               const void* buffer) {
    const auto* bytes = static_cast<const unsigned char*>(buffer);
    if (DiscardUnflushed::IsActive()) {
      return 0;
    }
    mEnd = std::max(mEnd, address + size);
    // If metadata cannot be written while the library flushes them, it cannot even close the file
    // any more. They wait, so that nothing but the flush of this driver fails on them.
    const bool isRaw = type == H5FD_MEM_DRAW;
    if (!isRaw || !HasContent() || address < mCommittedEnd ||
        size < FilePieces::sBytesWorthAWrite || mPending.Overlaps(address, size)) {
      mPending.Write(address, bytes, size);
      const bool isTooMuch = mPending.Size() > sMostPendingBytes && HasContent();
      return isTooMuch && EmitEarly(dxpl_id) < 0 && isRaw ? -1 : 0;
    }
    const herr_t err = WriteBelow(type, dxpl_id, address, size, bytes);
    // The library's metadata already lead to what is missing, a chunk with earlier rows among it.
    mLacksBytes = mLacksBytes || err < 0;
    return err;
  }

  herr_t Truncate(hid_t, hbool_t) {
    mEnd = Below()->cls->get_eoa(Below(), H5FD_MEM_DEFAULT);
    mPending.Cut(mEnd);
    return 0;
  }

  herr_t Flush(hid_t dxpl_id, hbool_t isClosing) {
    if (DiscardUnflushed::IsActive()) {
      mHasFailed = true;
      return 0;
    }
    mHasFailed = std::exchange(mLacksBytes, false) || TryToCommit(dxpl_id, isClosing) < 0;
    return mHasFailed ? -1 : 0;
  }

  // Commits what the library wrote after its last flush, as it does while it closes a file.
  herr_t Finish() {
    return mHasFailed || (mPending.IsEmpty() && mEnd == mCommittedEnd) ? 0
                                                                       : Flush(H5P_DEFAULT, true);
  }

 private:
  bool HasContent() const { return mCommittedEnd > 0; }

  herr_t TryToCommit(hid_t dxpl_id, hbool_t isClosing) {
    if (!HasContent()) {
      // The library flushes a superblock before there is a group, which nobody could open.
      if (mEnd <= sSuperblockBytes) {
        return 0;
      }
      if (CommitFirst(dxpl_id) < 0) {
        return -1;
      }
    }
    FilePieces fresh = mPending.TakeFrom(mCommittedEnd);
    if (TakeRoom() < 0 || Emit(fresh, dxpl_id) < 0 ||
        (FileEnd() < mEnd && Below()->cls->truncate(Below(), dxpl_id, isClosing) < 0) ||
        Emit(mPending, dxpl_id) < 0 ||
        (FileEnd() > mEnd && Below()->cls->truncate(Below(), dxpl_id, isClosing) < 0)) {
      return -1;
    }
    mCommittedEnd = mEnd;
    return Below()->cls->flush == nullptr ? 0 : Below()->cls->flush(Below(), dxpl_id, isClosing);
  }

  // Reserves disk space for the new part of the file, also where nothing is written yet: a later
  // commit could otherwise find the disk full when the old part is half overwritten. A file system
  // that cannot reserve space does without.
  herr_t TakeRoom() {
    const int descriptor = Descriptor();
    if (mEnd <= mCommittedEnd || descriptor < 0) {
      return 0;
    }
    int result = -1;
    do {
      result = fallocate(descriptor, 0, static_cast<off_t>(mCommittedEnd),
                         static_cast<off_t>(mEnd - mCommittedEnd));
    } while (result != 0 && errno == EINTR);
    const bool isFull = result != 0 && (errno == ENOSPC || errno == EDQUOT || errno == EFBIG);
    return isFull ? -1 : 0;
  }

  // Writes all that is held in one piece, the unused end of the file included, or nothing of it.
  herr_t CommitFirst(hid_t dxpl_id) {
    FilePieces::Bytes all(mEnd);
    mPending.Overlay(0, all.data(), all.size());
    mPending.Write(0, all.data(), all.size());
    const int descriptor = Descriptor();
    struct stat status {};
    // Where nobody uses locks, another process may have taken the same empty file for its own.
    if (fstat(descriptor, &status) != 0 || status.st_size != 0) {
      return -1;
    }
    const herr_t err = Emit(mPending, dxpl_id);
    mCommittedEnd = err < 0 ? 0 : mEnd;
    return err < 0 && ftruncate(descriptor, 0) != 0 ? -1 : err;
  }

  // When too much is held, what lies beyond the old end goes first, where it does no harm.
  herr_t EmitEarly(hid_t dxpl_id) {
    FilePieces fresh = mPending.TakeFrom(mCommittedEnd);
    const herr_t err = Emit(fresh, dxpl_id);
    return err < 0 || mPending.Size() <= sMostPendingBytes / 2 ? err : Emit(mPending, dxpl_id);
  }

  // Writes the pieces and forgets them, or keeps all of them if a write fails. They are gathered
  // first, so that the writes follow one another closely.
  herr_t Emit(FilePieces& pieces, hid_t dxpl_id) {
    const auto read = [&](haddr_t address, FilePieces::Bytes& bytes) {
      return ReadBelow(H5FD_MEM_DEFAULT, dxpl_id, address, bytes.size(), bytes.data()) >= 0;
    };
    bool isFine = pieces.Gather(read);
    if (FilePieces::Bytes* const beginning = pieces.Find(0)) {
      ClearWriteMark(*beginning);
    }
    for (const auto& [address, bytes] : pieces.All()) {
      isFine =
          isFine && WriteBelow(H5FD_MEM_DEFAULT, dxpl_id, address, bytes.size(), bytes.data()) >= 0;
    }
    if (isFine) {
      pieces.Clear();
    } else if (&pieces != &mPending) {
      for (const auto& [address, bytes] : pieces.All()) {
        mPending.Write(address, bytes.data(), bytes.size());
      }
    }
    return isFine ? 0 : -1;
  }

  haddr_t mEnd;              // of the file as the library sees it
  haddr_t mCommittedEnd;     // of the file as a reader sees it: 0 while it has no content
  bool mLacksBytes = false;  // some that the library wrote since the last flush
  bool mHasFailed = false;   // at the last flush
  FilePieces mPending;
};

}  // namespace

void Vexa_H5::SetCommittingDriver(hid_t fapl_id) {
  SetStackedDriver<CommittingFile>(fapl_id);
}
