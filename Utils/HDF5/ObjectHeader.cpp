#include "Utils/HDF5/ObjectHeader.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/GlobalHeap.hpp"
#include "Utils/HDF5/HeaderMessages.hpp"

using namespace Vexa_H5;

namespace {

using Bytes = FileBytes;

constexpr unsigned sLinkInfo = 0x02;
constexpr unsigned sLayout = 0x08;
constexpr unsigned sAttribute = 0x0C;
constexpr unsigned sAttributeInfo = 0x15;

class Header {
 public:
  explicit Header(const GlobalHeap::OpenFile& file) : mFile(file) {}

  void RequireSound(haddr_t address) const {
    const HeaderMessages messages{
        mFile.mAddressBytes, mFile.mSizeBytes, mFile.mFileSize,
        [this](std::uint64_t at, std::uint64_t count) { return Read(at, count); }};
    messages.ForEach(address,
                     [this](std::uint64_t type, Bytes data) { RequireSoundMessage(type, data); });
  }

 private:
  // Reads so many bytes from there on, or as many of them as the file has.
  std::vector<std::byte> Read(std::uint64_t address, std::uint64_t count) const {
    if (address >= mFile.mFileSize) {
      return {};
    }
    std::vector<std::byte> bytes(std::min(count, mFile.mFileSize - address));
    const ssize_t done = pread(mFile.mDescriptor, bytes.data(), bytes.size(),
                               static_cast<off_t>(mFile.mBase + address));
    bytes.resize(done > 0 ? static_cast<std::size_t>(done) : 0);
    return bytes;
  }

  void RequireSoundMessage(std::uint64_t type, Bytes data) const {
    const std::uint64_t flags = NumberAt(data, 1, 1);
    if (type == sAttribute) {
      RequireFittingAttribute(data);
    } else if (type == sAttributeInfo || type == sLinkInfo) {
      const std::size_t orderBytes = type == sAttributeInfo ? 2 : 8;
      const std::size_t heapAt = 2 + ((flags & 1) != 0 ? orderBytes : 0);
      RequireSoundHeap(AddressAt(data, heapAt));
      RequireFittingTree(AddressAt(data, heapAt + mFile.mAddressBytes));
    } else if (type == sLayout) {
      const bool isChunked = NumberAt(data, 0, 1) >= 4 && flags == 2;  // the class, in this message
      const std::size_t index = 5 + NumberAt(data, 3, 1) * NumberAt(data, 4, 1);
      constexpr unsigned tree = 5;
      if (isChunked && NumberAt(data, index, 1) == tree) {
        RequireFittingTree(AddressAt(data, index + 7));
      }
    }
  }

  void RequireFittingAttribute(Bytes data) const {
    const std::uint64_t version = NumberAt(data, 0, 1);
    const auto padded = [&](std::uint64_t size) {
      return version == 1 ? (size + 7) / 8 * 8 : size;
    };
    const std::uint64_t typeAt = (version == 3 ? 9 : 8) + padded(NumberAt(data, 2, 2));
    const std::uint64_t spaceAt = typeAt + padded(NumberAt(data, 4, 2));
    const std::uint64_t valuesAt = spaceAt + padded(NumberAt(data, 6, 2));
    REQUIRE_FOR_CALLER(valuesAt<=data.size(),
                       "Damaged header: an attribute of " << valuesAt << " bytes and its values in "
                                                          << data.size());
    const bool isElsewhere = version > 1 && NumberAt(data, 1, 1) != 0;  // its type or its space
    const Bytes space = From(data, spaceAt);
    const bool isEmpty = NumberAt(space, 0, 1) > 1 && NumberAt(space, 3, 1) == 2;
    if (isElsewhere || isEmpty) {
      return;
    }
    const std::uint64_t room = data.size() - valuesAt;
    std::vector<std::uint64_t> extents = {
        NumberAt(data, typeAt + 4, 4)};  // of an element, in bytes
    for (std::uint64_t i = 0; i < NumberAt(space, 1, 1); ++i) {
      const std::size_t at = (NumberAt(space, 0, 1) == 1 ? 8 : 4) + i * mFile.mSizeBytes;
      extents.push_back(NumberAt(space, at, mFile.mSizeBytes));
    }
    std::uint64_t size = std::ranges::count(extents, 0U) > 0 ? 0 : 1;
    for (const std::uint64_t extent : extents) {
      REQUIRE_FOR_CALLER(size==0 || extent<=room/size,
                         "Damaged header: the values of an attribute do not fit its " << room
                         << " bytes");
      size *= extent;
    }
  }

  void RequireFittingTree(std::uint64_t address) const {
    const std::size_t totalAt = 18 + mFile.mAddressBytes;
    const std::vector<std::byte> bytes = Read(address, totalAt + mFile.mSizeBytes);
    if (!BeginsWith(bytes, "BTHD")) {
      return;  // there is none
    }
    const std::uint64_t node = NumberAt(bytes, 6, 4);
    const std::uint64_t record = NumberAt(bytes, 10, 2);
    const std::uint64_t depth = NumberAt(bytes, 12, 2);
    const std::uint64_t records = NumberAt(bytes, totalAt, mFile.mSizeBytes);
    // A node has room for two records and what leads to three nodes below; a tree has a node on
    // each of its levels.
    constexpr std::uint64_t besides = 64;
    const bool fits = record > 0 && node >= 2 * record + besides &&
                      node <= mFile.mFileSize / (depth + 1) && records <= mFile.mFileSize / record;
    REQUIRE_FOR_CALLER(fits,
                       "Damaged header: a tree of depth " << depth << " and nodes of " << node
                           << " bytes for " << records << " records of " << record);
  }

  // Checks the heap that holds the links or the attributes of one object.
  void RequireSoundHeap(std::uint64_t address) const {
    const std::size_t sizes = mFile.mSizeBytes;
    const std::size_t addresses = mFile.mAddressBytes;
    const std::vector<std::byte> bytes = Read(address, 14 + 8 * sizes + 2 * addresses);
    if (!BeginsWith(bytes, "FRHP")) {
      return;  // there is none
    }
    const std::uint64_t hugeTree = AddressAt(bytes, 14 + sizes);
    const std::uint64_t hugeObjects = NumberAt(bytes, 14 + 7 * sizes + 2 * addresses, sizes);
    const std::uint64_t none = ~std::uint64_t{0} >> (64 - 8 * addresses);
    REQUIRE_FOR_CALLER(hugeObjects>0 || hugeTree==none,
                       "Damaged header: a tree of huge objects at " << hugeTree
                       << ", of which there are none");
    RequireFittingTree(hugeTree);
  }

  std::uint64_t AddressAt(Bytes data, std::uint64_t at) const {
    return NumberAt(data, at, mFile.mAddressBytes);
  }

  const GlobalHeap::OpenFile& mFile;
};

}  // namespace

void Vexa_H5::RequireSoundHeader(hid_t object_id) {
  const GlobalHeap::OpenFile& file = GlobalHeap::FileOf(object_id);
  if (file.mDescriptor < 0) {
    return;
  }
  H5O_info_t info;
  const herr_t err = H5Oget_info2(object_id, &info, H5O_INFO_BASIC);
  REQUIRE_FOR_CALLER(err>=0, "H5Oget_info2 failed");
  Header(file).RequireSound(info.addr);
}
