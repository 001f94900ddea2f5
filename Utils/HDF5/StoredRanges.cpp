#include "Utils/HDF5/StoredRanges.hpp"

#include <algorithm>
#include <utility>

namespace Vexa_H5 {

namespace {

constexpr std::size_t sNumberBytes = 8;  // of an address, and of a size
constexpr unsigned sDataspace = 0x01;
constexpr unsigned sLink = 0x06;
constexpr unsigned sLayout = 0x08;
constexpr unsigned sAttribute = 0x0C;
constexpr unsigned sSymbolTable = 0x11;
constexpr std::uint64_t sHeapCollectionBytes = 4096;
constexpr std::uint64_t sUsualNodeBytes = 4096;
// What is longer is told in parts, if it is known which rows they hold.
constexpr std::uint64_t sPartBytes = std::uint64_t{1} << 20;

std::uint64_t Padded(std::uint64_t size) {
  return (size + 7) / 8 * 8;
}

class Finder {
 public:
  Finder(std::uint64_t fileSize, const ReadBytes& read, WantedValues wanted, std::size_t most)
      : mRead(read),
        mMost(most),
        mWantsAll(wanted == WantedValues::All),
        mBytesLeft(fileSize),
        mMessages{sNumberBytes, sNumberBytes, fileSize, Budgeted()} {}

  // Members of groups wait their turn, so that nothing is deep.
  std::deque<ByteRange> Find(std::uint64_t address) {
    mObjects.push_back(address);
    while (!mObjects.empty() && MayGoOn()) {
      const std::uint64_t object = mObjects.back();
      mObjects.pop_back();
      mRows = mColumns = 1;
      ++mTable;
      mMessages.ForEach(object, [this](std::uint64_t type, FileBytes data) { Take(type, data); });
      while (!mNodes.empty() && MayGoOn()) {
        const Node node = mNodes.back();
        mNodes.pop_back();
        TakeNode(node);
      }
    }
    return std::move(mRanges);
  }

 private:
  struct Node {
    std::uint64_t mAddress;
    std::size_t mKeyBytes;
  };

  bool MayGoOn() const {
    return mBytesLeft > 0 && mRanges.size() + mNodes.size() + mObjects.size() < mMost;
  }

  ReadBytes Budgeted() {
    return [this](std::uint64_t at, std::uint64_t count) {
      if (count > mBytesLeft) {
        mBytesLeft = 0;
        return std::vector<std::byte>();
      }
      mBytesLeft -= count;
      return mRead(at, count);
    };
  }

  void Take(std::uint64_t type, FileBytes data) {
    if (type == sDataspace) {
      const std::size_t dimsAt = NumberAt(data, 0, 1) == 1 ? 8 : 4;
      const std::uint64_t rank = NumberAt(data, 1, 1);
      mRows = NumberAt(data, dimsAt, sNumberBytes);
      mColumns = rank == 2 ? NumberAt(data, dimsAt + sNumberBytes, sNumberBytes) : 1;
    } else if (type == sLayout) {
      TakeLayout(data);
    } else if (type == sAttribute) {
      TakeAttribute(data);
    } else if (type == sLink) {
      TakeLink(data);
    } else if (type == sSymbolTable) {
      mNodes.push_back({NumberAt(data, 0, sNumberBytes), sNumberBytes});
    }
  }

  void TakeLayout(FileBytes data) {
    const std::uint64_t version = NumberAt(data, 0, 1);
    const std::uint64_t layout = NumberAt(data, 1, 1);
    constexpr unsigned contiguous = 1;
    constexpr unsigned chunked = 2;
    if (mWantsAll && (version == 3 || version == 4) && layout == contiguous) {
      const std::uint64_t size = NumberAt(data, 10, sNumberBytes);
      AddRows({0, 0, 0, 0, Narrow(mColumns), mTable}, NumberAt(data, 2, sNumberBytes), size, mRows);
    } else if (version == 3 && layout == chunked) {
      const std::size_t dimensions = NumberAt(data, 2, 1);  // and one for the bytes of an element
      const std::size_t dimsAt = 3 + sNumberBytes;
      mChunkRows = NumberAt(data, dimsAt, 4);
      mChunkColumns = dimensions > 2 ? NumberAt(data, dimsAt + 4, 4) : 1;
      mElementBytes = NumberAt(data, dimsAt + 4 * (dimensions - 1), 4);
      mNodes.push_back({NumberAt(data, 3, sNumberBytes), 8 + 8 * dimensions});
    }
  }

  // Strings of variable length are in a collection of the heap, all of one list in the same or not.
  void TakeAttribute(FileBytes data) {
    const std::uint64_t version = NumberAt(data, 0, 1);
    std::uint64_t at = version == 3 ? 9 : 8;
    const std::uint64_t typeAt =
        at + (version == 1 ? Padded(NumberAt(data, 2, 2)) : NumberAt(data, 2, 2));
    at = typeAt;
    for (const std::size_t size : {4, 6}) {
      at += version == 1 ? Padded(NumberAt(data, size, 2)) : NumberAt(data, size, 2);
    }
    constexpr std::size_t elementBytes = 16;
    constexpr unsigned ofVariableLength = 9;
    if ((NumberAt(data, typeAt, 1) & 15) != ofVariableLength) {
      return;
    }
    std::uint64_t last = 0;
    for (; at + elementBytes <= data.size(); at += elementBytes) {
      const std::uint64_t address = NumberAt(data, at + 4, sNumberBytes);
      if (address != last && address != 0) {
        Add(address, sHeapCollectionBytes);
      }
      last = address;
    }
  }

  void TakeLink(FileBytes data) {
    const std::uint64_t flags = NumberAt(data, 1, 1);
    std::uint64_t at = 2;
    const std::uint64_t type = (flags & 8) != 0 ? NumberAt(data, at++, 1) : 0;
    at += ((flags & 4) != 0 ? 8 : 0) + ((flags & 16) != 0 ? 1 : 0);
    const std::size_t width = std::size_t{1} << (flags & 3);
    at += width + NumberAt(data, at, width);
    if (type == 0 && at + sNumberBytes <= data.size()) {
      mObjects.push_back(NumberAt(data, at, sNumberBytes));
    }
  }

  // A node has its level and the number of its entries; then keys and addresses take turns.
  void TakeNode(const Node& node) {
    constexpr std::size_t begin = 8 + 2 * sNumberBytes;
    constexpr unsigned ofChunks = 1;
    std::vector<std::byte> bytes = mMessages.mRead(node.mAddress, sUsualNodeBytes);
    if (BeginsWith(bytes, "SNOD")) {
      TakeMembers(bytes);
      return;
    }
    if (!BeginsWith(bytes, "TREE")) {
      return;
    }
    const std::uint64_t entries = NumberAt(bytes, 6, 2);
    const std::size_t entryBytes = node.mKeyBytes + sNumberBytes;
    if (begin + entries * entryBytes > bytes.size()) {
      bytes = mMessages.mRead(node.mAddress, begin + entries * entryBytes);
    }
    const bool isLeaf = NumberAt(bytes, 5, 1) == 0;
    const bool hasChunks = NumberAt(bytes, 4, 1) == ofChunks;
    for (std::uint64_t i = 0; i < entries && begin + (i + 1) * entryBytes <= bytes.size(); ++i) {
      const std::size_t at = begin + i * entryBytes;
      const std::uint64_t address = NumberAt(bytes, at + node.mKeyBytes, sNumberBytes);
      if (isLeaf && hasChunks) {
        const std::uint64_t column = NumberAt(bytes, at + 8 + sNumberBytes, sNumberBytes);
        if (mWantsAll || (mColumns > 1 && column == 0)) {
          AddChunk(address, NumberAt(bytes, at, 4), NumberAt(bytes, at + 8, sNumberBytes), column);
        }
      } else {
        mNodes.push_back({address, node.mKeyBytes});
      }
    }
  }

  // The members of a group in the older format.
  void TakeMembers(FileBytes bytes) {
    constexpr std::size_t begin = 8;
    constexpr std::size_t entryBytes = 2 * sNumberBytes + 24;
    for (std::uint64_t i = 0; i < NumberAt(bytes, 6, 2); ++i) {
      const std::size_t at = begin + i * entryBytes + sNumberBytes;
      if (at + sNumberBytes <= bytes.size()) {
        mObjects.push_back(NumberAt(bytes, at, sNumberBytes));
      }
    }
  }

  bool IsInFile(std::uint64_t address, std::uint64_t size) const {
    return address < mMessages.mFileSize && size <= mMessages.mFileSize - address && size > 0;
  }

  void Add(std::uint64_t address, std::uint64_t size) {
    if (IsInFile(address, size)) {
      mRanges.push_back({.mBegin = address, .mEnd = address + size});
    }
  }

  void AddChunk(std::uint64_t address, std::uint64_t size, std::uint64_t row,
                std::uint64_t column) {
    const bool isPlain = size == mChunkRows * mChunkColumns * mElementBytes;
    AddRows({0, 0, row, Narrow(column), Narrow(column + mChunkColumns), mTable}, address, size,
            isPlain ? mChunkRows : 0);
  }

  // Adds what holds rows, of the columns and from the row that `first` tells: so many, one after
  // the other, or 0 if it is not known where they are.
  void AddRows(ByteRange first, std::uint64_t address, std::uint64_t size, std::uint64_t rows) {
    const std::uint64_t rowBytes = rows > 0 ? size / rows : 0;
    const std::uint64_t rowsOfPart =
        rowBytes > 0 ? std::max<std::uint64_t>(sPartBytes / rowBytes, 1) : 0;
    while (rowsOfPart > 0 && size > rowsOfPart * rowBytes && IsInFile(address, size) && MayGoOn()) {
      first.mBegin = address;
      first.mEnd = address += rowsOfPart * rowBytes;
      mRanges.push_back(first);
      first.mRow += rowsOfPart;
      size -= rowsOfPart * rowBytes;
    }
    if (IsInFile(address, size)) {
      first.mBegin = address;
      first.mEnd = address + size;
      mRanges.push_back(first);
    }
  }

  static std::uint32_t Narrow(std::uint64_t column) {
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(column, ByteRange().mEndColumn));
  }

  const ReadBytes& mRead;
  std::size_t mMost;  // what is damaged may seem to have any number
  bool mWantsAll;
  std::uint32_t mTable = 0;  // counts objects
  std::uint64_t mRows = 1;   // of the object
  std::uint64_t mColumns = 1;
  std::uint64_t mChunkRows = 0;
  std::uint64_t mChunkColumns = 1;
  std::uint64_t mElementBytes = 0;
  std::uint64_t mBytesLeft;
  HeaderMessages mMessages;
  std::vector<std::uint64_t> mObjects;
  std::vector<Node> mNodes;
  std::deque<ByteRange> mRanges;  // not a vector, which would hold them twice while it grows
};

}  // namespace

bool HasKnownAddresses(const ReadBytes& read) {
  const std::vector<std::byte> superblock = read(0, 16);
  const std::uint64_t version = NumberAt(superblock, 8, 1);
  const std::size_t sizesAt = version < 2 ? 13 : 9;
  constexpr unsigned last = 2;  // whose files have the tree of version 1
  return BeginsWith(superblock, "\x89HDF\r\n\x1a\n") && version <= last &&
         NumberAt(superblock, sizesAt, 1) == sNumberBytes &&
         NumberAt(superblock, sizesAt + 1, 1) == sNumberBytes;
}

std::deque<ByteRange> StoredRanges(std::uint64_t address, std::uint64_t fileSize,
                                   const ReadBytes& read, WantedValues wanted, std::size_t most) {
  return Finder(fileSize, read, wanted, most).Find(address);
}

}  // namespace Vexa_H5
