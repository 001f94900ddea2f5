#include "Utils/HDF5/HeaderMessages.hpp"

namespace Vexa_H5 {

namespace {

constexpr unsigned sContinuation = 0x10;
constexpr std::size_t sChecksumBytes = 4;

// How a header lays out its messages.
struct Format {
  bool mIsOld = false;  // the format before version 1.8 of the library
  std::size_t mMessageHeader = 8;
  std::uint64_t mBegin = 16;  // of the first block
  std::uint64_t mSize = 0;    // of that

  explicit Format(FileBytes bytes) : mIsOld(!BeginsWith(bytes, "OHDR")) {
    mSize = NumberAt(bytes, 8, 4);
    if (!mIsOld) {
      const std::uint64_t flags = NumberAt(bytes, 5, 1);
      mBegin = 6 + ((flags & 0x20) != 0 ? 16 : 0) + ((flags & 0x10) != 0 ? 4 : 0);
      const std::size_t width = std::size_t{1} << (flags & 3);
      mSize = NumberAt(bytes, mBegin, width);
      mBegin += width;
      mMessageHeader = (flags & 4) != 0 ? 6 : 4;
    }
  }

  void ForEach(FileBytes block, const HeaderMessages::Take& take) const {
    while (block.size() >= mMessageHeader) {
      const std::uint64_t type = NumberAt(block, 0, mIsOld ? 2 : 1);
      const std::uint64_t size = NumberAt(block, mIsOld ? 2 : 1, 2);
      const std::uint64_t flags = NumberAt(block, mIsOld ? 4 : 3, 1);
      block = block.subspan(mMessageHeader);
      if (size > block.size()) {
        return;
      }
      const bool isElsewhere = (flags & 2) != 0;
      if (!isElsewhere) {
        take(type, block.first(size));
      }
      block = block.subspan(size);
    }
  }
};

}  // namespace

void HeaderMessages::ForEach(std::uint64_t address, const Take& take) const {
  struct Block {
    std::uint64_t mAddress;
    std::uint64_t mSize;
  };
  std::vector<Block> blocks;  // where the header goes on
  const auto takeOne = [&](std::uint64_t type, FileBytes data) {
    if (type == sContinuation) {
      blocks.push_back(
          {NumberAt(data, 0, mAddressBytes), NumberAt(data, mAddressBytes, mSizeBytes)});
    } else {
      take(type, data);
    }
  };
  constexpr std::uint64_t usual = 1024;
  std::vector<std::byte> bytes = mRead(address, usual);
  const Format format{bytes};
  if (format.mSize > usual - format.mBegin) {
    bytes = mRead(address, format.mSize > mFileSize ? 0 : format.mBegin + format.mSize);
  }
  const FileBytes messages = From(bytes, format.mBegin);
  format.ForEach(messages.first(std::min<std::uint64_t>(format.mSize, messages.size())), takeOne);
  // A header that goes on in itself has no end. All blocks together have their place in the file.
  std::uint64_t room = mFileSize;
  for (std::size_t i = 0; i < blocks.size() && blocks[i].mSize <= room; ++i) {
    room -= std::max<std::uint64_t>(blocks[i].mSize, 1);
    bytes = mRead(blocks[i].mAddress, blocks[i].mSize);
    const std::size_t around = format.mIsOld ? 0 : 2 * sChecksumBytes;  // and the signature
    if (bytes.size() >= around) {
      format.ForEach(FileBytes(bytes).subspan(around / 2, bytes.size() - around), takeOne);
    }
  }
}

}  // namespace Vexa_H5
