// Where a file keeps its strings of variable length: in the collections of its global heap (HDF5
// File Format Specification 3.0, III.E). Read here only to see whether they are sound, since the
// library trusts them: damaged ones crash it, or show it another string.
#pragma once

#include <hdf5.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <source_location>
#include <span>
#include <vector>

/// Of the file of an open object, which is lent. The file is not open for writing.
class H5_GlobalHeap {
 public:
  /// What fails is reported with `failure` before it.
  H5_GlobalHeap(hid_t object_id, const char* failure, std::source_location where);

  /// What a string takes beside its characters: length, address of its collection, index in that.
  std::size_t ElementBytes() const;

  /// Fails unless the string is in the file, with the length that its element gives, and no element
  /// before this one had the same. A string that was never written has neither length nor address.
  void RequireString(std::span<const std::byte> element);

 private:
  struct FileFormat {
    hid_t mFile_id = -1;
    std::size_t mAddressBytes = 0;
    std::size_t mSizeBytes = 0;
    std::uint64_t mBase = 0;  // addresses count from here
  };
  struct Object {
    std::uint64_t mSize = 0;
    bool mIsPresent = false;
    bool mIsTaken = false;
  };
  struct Collection {
    std::uint64_t mEnd = 0;
    std::vector<Object> mObjects;  // by index
  };

  static FileFormat FormatOf(hid_t file_id, std::source_location where);
  Collection& At(std::uint64_t address);
  Collection ReadCollection(std::uint64_t address);
  const std::byte* Bytes(std::uint64_t address, std::size_t count);

  const char* mFailure;
  std::source_location mWhere;
  int mDescriptor = -1;
  FileFormat mFormat;
  std::uint64_t mFileSize = 0;                       // from the base on
  std::map<std::uint64_t, Collection> mCollections;  // by address; they do not overlap
  std::vector<std::byte> mWindow;                    // a part of the file
  std::uint64_t mWindowAddress = 0;
};
