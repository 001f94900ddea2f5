// A file keeps its strings of variable length in the collections of its global heap (HDF5 File
// Format Specification 3.0, III.E). We read them ourselves, since the library trusts them: damaged
// ones crash it, or show it another string.
#pragma once

#include <hdf5.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Vexa_H5 {

/// Reads strings from the global heap of the file that holds an open object. The object stays the
/// caller's.
class GlobalHeap {
 public:
  /// What fails is reported with `failure` before it.
  GlobalHeap(hid_t object_id, const char* failure);

  /// Whether the heap can be read. It cannot if the file is open for writing, since strings may
  /// still be in memory then, if the file holds an image of the library's cache, or if it is no
  /// ordinary file to the library.
  bool CanRead() const { return mFile.mDescriptor >= 0; }

  /// Returns the bytes of an element, which has the length of a string, the address of its
  /// collection, and its index in that.
  std::size_t ElementBytes() const;

  /// Returns the string of an element, up to its first zero. Fails unless it is in the file, with
  /// the length that its element gives, and (unless they may share) no element before this one had
  /// the same. A string that was never written has neither length nor address, and is empty.
  std::string String(std::span<const std::byte> element, bool mayShare);

  struct Object {
    std::uint32_t mIndex;
    std::uint64_t mSize;
    std::uint64_t mAddress;  // of its first byte
  };
  struct Collection {
    std::uint64_t mAddress = 0;
    std::uint64_t mSize = 0;
    std::vector<Object> mObjects;  // ascending by index
  };
  using CollectionPointer = std::shared_ptr<const Collection>;
  struct OpenFile {
    hid_t mFile_id = -1;
    unsigned long mLife = 0;  // of the library, in which the file was opened
    std::size_t mAddressBytes = 0;
    std::size_t mSizeBytes = 0;
    std::uint64_t mBase = 0;      // addresses count from here
    std::uint64_t mFileSize = 0;  // from there on
    int mDescriptor = -1;         // negative if strings cannot be seen
    CollectionPointer mpLast;
  };
  /// Returns the file of an open object, as long as it stays open and no other file is asked for.
  static OpenFile& FileOf(hid_t object_id);

 private:
  struct KnownCollection {
    CollectionPointer mpCollection;
    std::vector<bool> mIsTaken;  // whether an element had the object at this position
  };

  KnownCollection& CollectionAt(std::uint64_t address);
  CollectionPointer ReadCollection(std::uint64_t address);
  void ReadObjects(Collection& collection);
  const std::byte* Bytes(std::uint64_t address, std::size_t count);

  OpenFile& mFile;
  const char* mFailure;
  std::map<std::uint64_t, KnownCollection> mCollections;  // by address; they do not overlap
  std::uint64_t mIndices = 0;                             // that the library keeps for them
  std::uint64_t mMostIndices;
  std::vector<std::byte> mWindow;  // a part of the file
  std::uint64_t mWindowAddress = 0;
};

}  // namespace Vexa_H5
