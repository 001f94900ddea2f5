#include "Utils/HDF5/GlobalHeap.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/Library.hpp"
#include "Utils/HDF5/LittleEndian.hpp"
#include "Utils/Process/PerThread.hpp"

namespace Vexa_H5 {

namespace {

constexpr std::size_t sLengthBytes = 4;
constexpr std::size_t sIndexBytes = 4;
// A collection begins with its signature, version and size; an object with its index, a count of
// references and its size. Either takes this much, whatever the size of a size.
constexpr std::uint64_t sHeaderBytes = 16;
constexpr std::uint64_t sSizeAt = 8;
constexpr std::size_t sObjectIndexBytes = 2;
constexpr std::uint64_t sSmallestCollection = 4096;
// Collections up to this size are kept for the next list of strings.
constexpr std::uint64_t sKeptCollection = 65536;
// The library keeps some 24 bytes for each index up to the highest of a collection. A collection of
// which many strings were replaced has a high one and few objects; but not a hundred of them.
constexpr std::uint64_t sHarmlessIndices = std::uint64_t{1} << 22;

std::uint64_t Padded(std::uint64_t size) {
  return (size + 7) / 8 * 8;
}

// The descriptor through which the strings of a file can be read; negative if they cannot.
int DescriptorOf(hid_t file_id) {
  unsigned intent = 0;
  herr_t err = H5Fget_intent(file_id, &intent);
  REQUIRE_FOR_CALLER(err>=0, "H5Fget_intent failed");
  haddr_t imageAddress = 0;
  hsize_t imageSize = 0;
  err = H5Fget_mdc_image_info(file_id, &imageAddress, &imageSize);
  REQUIRE_FOR_CALLER(err>=0, "H5Fget_mdc_image_info failed");
  const PropertyListHandle fapl_id(H5Fget_access_plist(file_id));
  REQUIRE_FOR_CALLER(fapl_id>=0, "H5Fget_access_plist failed");
  if ((intent & H5F_ACC_RDWR) != 0 || imageSize > 0 || H5Pget_driver(fapl_id) != H5FD_SEC2) {
    return -1;
  }
  void* pDescriptor = nullptr;
  err = H5Fget_vfd_handle(file_id, H5P_DEFAULT, &pDescriptor);
  REQUIRE_FOR_CALLER(err>=0, "H5Fget_vfd_handle failed");
  return *static_cast<int*>(pDescriptor);
}

}  // namespace

GlobalHeap::GlobalHeap(hid_t object_id, const char* failure)
    : mFile(FileOf(object_id)), mFailure(failure), mMostIndices(sHarmlessIndices) {}

// What is known of the last files is kept. Asking the library takes longer than checking a short
// list of strings, and a file can have thousands of such lists, which are read in turn with those
// of other files. The library gives no identifier twice in one life.
GlobalHeap::OpenFile& GlobalHeap::FileOf(hid_t object_id) {
  const Handle<H5Fclose> file_id(H5Iget_file_id(object_id));
  REQUIRE_FOR_CALLER(file_id>=0, "H5Iget_file_id failed");
  using KnownFiles = std::array<OpenFile, 64>;
  KnownFiles& files = PerThread<KnownFiles>();
  OpenFile& known = files[static_cast<std::size_t>(hid_t(file_id)) % files.size()];
  if (known.mFile_id == file_id && known.mLife == LibraryLife()) {
    return known;
  }
  OpenFile file;
  const PropertyListHandle fcpl_id(H5Fget_create_plist(file_id));
  REQUIRE_FOR_CALLER(fcpl_id>=0, "H5Fget_create_plist failed");
  herr_t err = H5Pget_sizes(fcpl_id, &file.mAddressBytes, &file.mSizeBytes);
  REQUIRE_FOR_CALLER(err>=0, "H5Pget_sizes failed");
  const std::size_t most = sizeof(std::uint64_t);
  REQUIRE_FOR_CALLER(file.mAddressBytes<=most && file.mSizeBytes<=most,
                     "Addresses of " << file.mAddressBytes << " bytes and sizes of "
                         << file.mSizeBytes << " are not read");
  hsize_t base = 0;
  err = H5Pget_userblock(fcpl_id, &base);
  REQUIRE_FOR_CALLER(err>=0, "H5Pget_userblock failed");
  hsize_t size = 0;
  err = H5Fget_filesize(file_id, &size);
  REQUIRE_FOR_CALLER(err>=0 && size>=base, "H5Fget_filesize failed");
  file.mBase = base;
  file.mFileSize = size - base;
  file.mDescriptor = DescriptorOf(file_id);
  file.mFile_id = file_id;
  file.mLife = LibraryLife();
  known = std::move(file);
  return known;
}

std::size_t GlobalHeap::ElementBytes() const {
  return sLengthBytes + mFile.mAddressBytes + sIndexBytes;
}

std::string GlobalHeap::String(std::span<const std::byte> element, bool mayShare) {
  const std::uint64_t length = LittleEndian(element.data(), sLengthBytes);
  const std::uint64_t address = LittleEndian(element.data() + sLengthBytes, mFile.mAddressBytes);
  const std::uint64_t index =
      LittleEndian(element.data() + sLengthBytes + mFile.mAddressBytes, sIndexBytes);
  if (address == 0) {
    REQUIRE_FOR_CALLER(length==0,
                       mFailure << ": a string of " << length << " characters has no address");
    return {};
  }
  KnownCollection& use = CollectionAt(address);
  const std::vector<Object>& objects = use.mpCollection->mObjects;
  const auto object = std::ranges::lower_bound(objects, index, {}, &Object::mIndex);
  REQUIRE_FOR_CALLER(object!=objects.end() && object->mIndex==index,
                     mFailure << ": there is no string " << index << " in the collection at "
                     << address);
  REQUIRE_FOR_CALLER(object->mSize==length,
                     mFailure << ": string " << index << " in the collection at " << address
                         << " has " << object->mSize << " characters instead of " << length);
  const auto position = static_cast<std::size_t>(object - objects.begin());
  REQUIRE_FOR_CALLER(mayShare || !use.mIsTaken[position],
                     mFailure << ": two strings are string " << index << " in the collection at "
                              << address);
  use.mIsTaken[position] = true;
  const auto* text = reinterpret_cast<const char*>(Bytes(object->mAddress, object->mSize));
  return {text, strnlen(text, object->mSize)};
}

GlobalHeap::KnownCollection& GlobalHeap::CollectionAt(std::uint64_t address) {
  const auto found = mCollections.find(address);
  if (found != mCollections.end()) {
    return found->second;
  }
  if (mFile.mpLast == nullptr || mFile.mpLast->mAddress != address) {
    mFile.mpLast = ReadCollection(address);
  }
  KnownCollection known = {mFile.mpLast, std::vector<bool>(mFile.mpLast->mObjects.size())};
  if (known.mpCollection->mSize > sKeptCollection) {
    mFile.mpLast.reset();
  }
  // If collections could overlap, a small file could make us read its bytes again and again, and
  // the library keep gigabytes.
  const auto next = mCollections.lower_bound(address);
  const std::uint64_t end = address + known.mpCollection->mSize;
  const auto endOf = [](const KnownCollection& other) {
    return other.mpCollection->mAddress + other.mpCollection->mSize;
  };
  const bool isApart = (next == mCollections.end() || end <= next->first) &&
                       (next == mCollections.begin() || endOf(std::prev(next)->second) <= address);
  REQUIRE_FOR_CALLER(isApart,
                     mFailure << ": the collection at " << address << " overlaps with another");
  mIndices += known.mIsTaken.empty() ? 0 : known.mpCollection->mObjects.back().mIndex;
  mMostIndices += known.mpCollection->mSize / sHeaderBytes;
  REQUIRE_FOR_CALLER(mIndices<=mMostIndices,
                     mFailure << ": the collections up to that at " << address
                              << " claim more strings than they have room for");
  return mCollections.emplace_hint(next, address, std::move(known))->second;
}

GlobalHeap::CollectionPointer GlobalHeap::ReadCollection(std::uint64_t address) {
  constexpr std::string_view signature("GCOL\1", 5);
  const std::byte* pHeader = Bytes(address, sHeaderBytes);
  REQUIRE_FOR_CALLER(std::equal(signature.begin(), signature.end(), reinterpret_cast<const char*>(pHeader)),
                     mFailure << ": there is no collection of strings at " << address);
  auto pCollection = std::make_shared<Collection>();
  pCollection->mAddress = address;
  pCollection->mSize = LittleEndian(pHeader + sSizeAt, mFile.mSizeBytes);
  const bool isInFile =
      pCollection->mSize >= sSmallestCollection && pCollection->mSize <= mFile.mFileSize - address;
  REQUIRE_FOR_CALLER(isInFile,
                     mFailure << ": the collection at " << address << " has " << pCollection->mSize
                              << " bytes, its file " << mFile.mFileSize);
  ReadObjects(*pCollection);
  return pCollection;
}

void GlobalHeap::ReadObjects(Collection& collection) {
  std::vector<Object>& objects = collection.mObjects;
  objects.reserve(sSmallestCollection / sHeaderBytes);
  const std::uint64_t end = collection.mAddress + collection.mSize;
  bool isAscending = true;
  bool hasFreeRoom = false;
  // Room at the end that is too small for a header is free.
  for (std::uint64_t at = collection.mAddress + sHeaderBytes; end - at >= sHeaderBytes;) {
    const std::byte* pObject = Bytes(at, sHeaderBytes);
    const auto index = static_cast<std::uint32_t>(LittleEndian(pObject, sObjectIndexBytes));
    const std::uint64_t size = LittleEndian(pObject + sSizeAt, mFile.mSizeBytes);
    const std::uint64_t room = end - at;
    // Object 0 is the free room, with its header.
    const bool isFreeRoom = index == 0;
    const bool fits = isFreeRoom ? size >= sHeaderBytes && size <= room && !hasFreeRoom
                                 : size <= room && sHeaderBytes + Padded(size) <= room;
    REQUIRE_FOR_CALLER(fits,
                       mFailure << ": the collection at " << collection.mAddress
                           << " is damaged at " << at);
    if (isFreeRoom) {
      hasFreeRoom = true;
      at += size;
    } else {
      isAscending = isAscending && (objects.empty() || objects.back().mIndex < index);
      objects.push_back({index, size, at + sHeaderBytes});
      at += sHeaderBytes + Padded(size);
    }
  }
  if (!isAscending) {
    std::ranges::sort(objects, {}, &Object::mIndex);
    const auto twice = std::ranges::adjacent_find(objects, {}, &Object::mIndex);
    REQUIRE_FOR_CALLER(twice==objects.end(),
                       mFailure << ": the collection at " << collection.mAddress << " has string "
                                << twice->mIndex << " twice");
  }
}

const std::byte* GlobalHeap::Bytes(std::uint64_t address, std::size_t count) {
  // An address before the window gives a huge offset, which is beyond any window.
  std::uint64_t at = address - mWindowAddress;
  if (at > mWindow.size() || count > mWindow.size() - at) {
    REQUIRE_FOR_CALLER(address<=mFile.mFileSize && count<=mFile.mFileSize-address,
                       mFailure << ": a collection at " << address
                       << " is beyond the end of the file");
    mWindow.resize(std::min(std::max(sSmallestCollection, count), mFile.mFileSize - address));
    mWindowAddress = address;
    at = 0;
    std::size_t done = 0;
    while (done < count) {
      const ssize_t bytes = pread(mFile.mDescriptor, mWindow.data() + done, mWindow.size() - done,
                                  static_cast<off_t>(mFile.mBase + address + done));
      REQUIRE_FOR_CALLER(bytes>0 || (bytes<0 && errno==EINTR),
                         mFailure << ": the strings at " << address << " cannot be read");
      done += bytes > 0 ? static_cast<std::size_t>(bytes) : 0;
    }
    mWindow.resize(done);
  }
  return mWindow.data() + at;
}

}  // namespace Vexa_H5
