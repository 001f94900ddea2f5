#include "Utils/H5/H5_GlobalHeap.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <iterator>
#include <string_view>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/H5/Handle.hpp"

namespace {

constexpr std::size_t sLengthBytes = 4;
constexpr std::size_t sIndexBytes = 4;
// A collection begins with its signature, version and size; an object with its index, a count of
// references and its size. Either takes this much, whatever the size of a size.
constexpr std::uint64_t sHeaderBytes = 16;
constexpr std::uint64_t sSizeAt = 8;
constexpr std::size_t sObjectIndexBytes = 2;
// Large enough for the collections of short strings.
constexpr std::size_t sWindowBytes = 4096;

std::uint64_t LittleEndian(const std::byte* bytes, std::size_t count) {
  std::uint64_t number = 0;
  while (count-- > 0) {
    number = number << 8 | std::to_integer<std::uint64_t>(bytes[count]);
  }
  return number;
}

// The same of the first bytes of eight.
std::uint64_t OfWord(const std::byte* word, std::size_t count) {
  std::uint64_t number = 0;
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(&number, word, sizeof(number));
    return number & ~std::uint64_t{0} >> (64 - 8 * count);
  }
  return LittleEndian(word, count);
}

std::uint64_t Padded(std::uint64_t size) {
  return (size + 7) / 8 * 8;
}

}  // namespace

H5_GlobalHeap::H5_GlobalHeap(hid_t object_id, const char* failure, std::source_location where)
    : mFailure(failure), mWhere(where) {
  const Handle<H5Fclose> file_id(H5Iget_file_id(object_id));
  REQUIRE_AT(where, file_id>=0, "H5Iget_file_id failed");
  mFormat = FormatOf(file_id, where);
  hsize_t size = 0;
  herr_t err = H5Fget_filesize(file_id, &size);
  REQUIRE_AT(where, err>=0 && size>=mFormat.mBase, "H5Fget_filesize failed");
  mFileSize = size - mFormat.mBase;
  void* pDescriptor = nullptr;
  err = H5Fget_vfd_handle(file_id, H5P_DEFAULT, &pDescriptor);
  REQUIRE_AT(where, err>=0, "H5Fget_vfd_handle failed");
  mDescriptor = *static_cast<int*>(pDescriptor);
}

// To ask for it takes longer than all else that is done for a short list of strings, of which a
// file can have thousands, in turn with those of other files. The library gives no identifier
// twice.
H5_GlobalHeap::FileFormat H5_GlobalHeap::FormatOf(hid_t file_id, std::source_location where) {
  static std::array<FileFormat, 64> sKnown;
  FileFormat& known = sKnown[static_cast<std::size_t>(file_id) % sKnown.size()];
  if (known.mFile_id == file_id) {
    return known;
  }
  const PropertyListHandle fcpl_id(H5Fget_create_plist(file_id));
  REQUIRE_AT(where, fcpl_id>=0, "H5Fget_create_plist failed");
  FileFormat format;
  herr_t err = H5Pget_sizes(fcpl_id, &format.mAddressBytes, &format.mSizeBytes);
  REQUIRE_AT(where, err>=0, "H5Pget_sizes failed");
  hsize_t base = 0;
  err = H5Pget_userblock(fcpl_id, &base);
  REQUIRE_AT(where, err>=0, "H5Pget_userblock failed");
  format.mBase = base;
  format.mFile_id = file_id;
  const std::size_t most = sizeof(std::uint64_t);
  REQUIRE_AT(where, format.mAddressBytes<=most && format.mSizeBytes<=most,
             "Addresses of " << format.mAddressBytes << " bytes and sizes of " << format.mSizeBytes
                             << " are not read");
  known = format;
  return format;
}

std::size_t H5_GlobalHeap::ElementBytes() const {
  return sLengthBytes + mFormat.mAddressBytes + sIndexBytes;
}

void H5_GlobalHeap::RequireString(std::span<const std::byte> element) {
  const std::uint64_t length = LittleEndian(element.data(), sLengthBytes);
  const std::uint64_t address = LittleEndian(element.data() + sLengthBytes, mFormat.mAddressBytes);
  const std::uint64_t index =
      LittleEndian(element.data() + sLengthBytes + mFormat.mAddressBytes, sIndexBytes);
  if (address == 0) {
    REQUIRE_AT(mWhere, length==0,
               mFailure << ": a string of " << length << " characters has no address");
    return;
  }
  std::vector<Object>& objects = At(address).mObjects;
  REQUIRE_AT(mWhere, index<objects.size() && objects[index].mIsPresent,
             mFailure << ": there is no string " << index << " in the collection at " << address);
  Object& object = objects[index];
  REQUIRE_AT(mWhere, object.mSize==length,
             mFailure << ": string " << index << " in the collection at " << address << " has "
                      << object.mSize << " characters instead of " << length);
  REQUIRE_AT(mWhere, !object.mIsTaken,
             mFailure << ": two strings are string " << index << " in the collection at "
                      << address);
  object.mIsTaken = true;
}

H5_GlobalHeap::Collection& H5_GlobalHeap::At(std::uint64_t address) {
  const auto found = mCollections.find(address);
  if (found != mCollections.end()) {
    return found->second;
  }
  Collection collection = ReadCollection(address);
  // Or a small file could make us read its bytes again and again.
  const auto next = mCollections.lower_bound(address);
  const bool isApart = (next == mCollections.end() || collection.mEnd <= next->first) &&
                       (next == mCollections.begin() || std::prev(next)->second.mEnd <= address);
  REQUIRE_AT(mWhere, isApart,
             mFailure << ": the collection at " << address << " overlaps with another");
  return mCollections.emplace_hint(next, address, std::move(collection))->second;
}

H5_GlobalHeap::Collection H5_GlobalHeap::ReadCollection(std::uint64_t address) {
  constexpr std::string_view signature("GCOL\1", 5);
  const std::byte* pHeader = Bytes(address, sHeaderBytes);
  REQUIRE_AT(mWhere,
             std::equal(signature.begin(), signature.end(), reinterpret_cast<const char*>(pHeader)),
             mFailure << ": there is no collection of strings at " << address);
  const std::uint64_t size = OfWord(pHeader + sSizeAt, mFormat.mSizeBytes);
  const bool isInFile = size >= sHeaderBytes && size <= mFileSize - address;
  REQUIRE_AT(mWhere, isInFile,
             mFailure << ": the collection at " << address << " has " << size
                      << " bytes, its file " << mFileSize);
  Collection collection;
  collection.mEnd = address + size;
  std::vector<Object>& objects = collection.mObjects;
  objects.resize(sWindowBytes / sHeaderBytes);
  // What is left at the end for no header is free.
  for (std::uint64_t at = address + sHeaderBytes; collection.mEnd - at >= sHeaderBytes;) {
    const std::byte* pObject = Bytes(at, sHeaderBytes);
    const std::uint64_t index = OfWord(pObject, sObjectIndexBytes);
    const std::uint64_t bytes = OfWord(pObject + sSizeAt, mFormat.mSizeBytes);
    const std::uint64_t room = collection.mEnd - at;
    // Object 0 is the free room, with its header.
    const bool fits = index == 0 ? bytes >= sHeaderBytes && bytes <= room
                                 : bytes <= room && sHeaderBytes + Padded(bytes) <= room;
    if (index >= objects.size()) {
      objects.resize(2 * index);
    }
    Object& object = objects[index];
    REQUIRE_AT(mWhere, fits && !object.mIsPresent,
               mFailure << ": the collection at " << address << " is damaged at " << at);
    object = {bytes, true, index == 0};
    at += index == 0 ? bytes : sHeaderBytes + Padded(bytes);
  }
  return collection;
}

const std::byte* H5_GlobalHeap::Bytes(std::uint64_t address, std::size_t count) {
  // Beyond any window if it is before this one.
  std::uint64_t at = address - mWindowAddress;
  if (at > mWindow.size() || count > mWindow.size() - at) {
    REQUIRE_AT(mWhere, address<=mFileSize && count<=mFileSize-address,
               mFailure << ": a collection at " << address << " is beyond the end of the file");
    mWindow.resize(std::min<std::uint64_t>(sWindowBytes, mFileSize - address));
    mWindowAddress = address;
    at = 0;
    std::size_t done = 0;
    while (done < count) {
      const ssize_t bytes = pread(mDescriptor, mWindow.data() + done, mWindow.size() - done,
                                  static_cast<off_t>(mFormat.mBase + address + done));
      REQUIRE_AT(mWhere, bytes>0, mFailure << ": the strings at " << address << " cannot be read");
      done += static_cast<std::size_t>(bytes);
    }
    mWindow.resize(done);
  }
  return mWindow.data() + at;
}
