// Deflate blocks without matches (RFC 1951, section 3.2.4 and 3.2.7): bytes that repeat nothing are
// either stored as they are or written in a prefix code made for them. This is all that mantissa
// bytes yield to, and many times faster than a search for matches.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace ChunkCodec {

/// How a run of bytes will be written: planned first, so that its exact size is known before
/// anything is written.
class LiteralBlocks {
 public:
  /// Plans blocks for the bytes, which are lent and must live until Write().
  explicit LiteralBlocks(std::span<const std::uint8_t> bytes);

  /// At least the bytes that Write() writes, and hardly more. Never more than StoredSize().
  std::size_t Size() const { return mSize; }
  /// The size when all blocks are stored.
  static std::size_t StoredSize(std::size_t bytes) { return bytes + 5 * (bytes / 65535 + 1); }

  /// Writes the blocks, none of them marked as the stream's last, from a byte boundary to a byte
  /// boundary: if the last is not a stored one, an empty stored block follows, as after zlib's sync
  /// flush. Returns the end. The room must be Size() and WriteSlack bytes.
  std::uint8_t* Write(std::uint8_t* out) const;
  static constexpr std::size_t WriteSlack = 8;

 private:
  static constexpr std::size_t Symbols = 257;  // the byte values and the end of a block

  struct Block {
    std::span<const std::uint8_t> mBytes;
    bool mIsCoded = false;
    std::array<std::uint8_t, Symbols> mLengths;  // of the code words, if it is coded
  };

  static std::size_t PlanCode(Block& block);

  std::vector<Block> mBlocks;  // adjacent stored ones are one block
  std::size_t mSize = 0;
};

}  // namespace ChunkCodec
