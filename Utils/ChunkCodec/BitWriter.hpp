// Writes the bit stream of deflate (RFC 1951, section 3.1.1): the first bit is the lowest.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace ChunkCodec {

class BitWriter {
 public:
  explicit BitWriter(std::uint8_t* out) : mpOut(out) {}

  /// Adds the low `count` bits of `bits`; the others are zero. Flush at least every 57 bits.
  void Put(std::uint64_t bits, int count) {
    mBits |= bits << mCount;
    mCount += count;
  }
  /// Moves whole bytes out; writes up to eight bytes beyond the end, which later ones overwrite.
  void Flush() {
    for (int byte = 0; byte < 8; ++byte) {  // one store, whatever the byte order
      mpOut[byte] = static_cast<std::uint8_t>(mBits >> 8 * byte);
    }
    mpOut += mCount / 8;
    mBits >>= mCount & ~7;
    mCount &= 7;
  }
  /// Stored blocks of at most 65535 bytes; at least one, even if there are no bytes.
  void Store(std::span<const std::uint8_t> bytes) {
    do {
      const auto part = bytes.first(std::min<std::size_t>(bytes.size(), 65535));
      Put(0, 3);  // not the last block, stored
      mCount = (mCount + 7) & ~7;
      Put(part.size() | (~part.size() & 0xffff) << 16, 32);
      Flush();
      std::copy(part.begin(), part.end(), mpOut);
      mpOut += part.size();
      bytes = bytes.subspan(part.size());
    } while (!bytes.empty());
  }
  bool IsAtByte() const { return mCount == 0; }
  std::uint8_t* End() const { return mpOut; }

 private:
  std::uint8_t* mpOut;
  std::uint64_t mBits = 0;
  int mCount = 0;
};

}  // namespace ChunkCodec
