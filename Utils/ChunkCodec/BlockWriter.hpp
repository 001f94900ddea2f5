// Deflate blocks (RFC 1951, section 3.2): each is stored as it is, written in a prefix code made
// for its bytes, or with matches besides, whichever is shortest; hardly longer counts as short if
// it is quicker to read.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "Utils/ChunkCodec/BitWriter.hpp"
#include "Utils/ChunkCodec/MatchSearch.hpp"

namespace ChunkCodec {

/// Writes blocks one after the other, none of them marked as the stream's last. Short blocks that
/// follow each other in memory are joined where that saves a code.
class BlockWriter {
 public:
  /// Begins at a byte boundary. There must be room for Bound() of what is added until Finish().
  void Start(std::uint8_t* out);

  /// To be appended to: what describes the bytes that are added next.
  std::vector<Sequence>& Sequences() { return mSequences; }
  /// Adds one block. The bytes are lent until Finish().
  void Add(std::span<const std::uint8_t> bytes);

  /// Writes what waits, up to a byte boundary: if the last block does not end there, an empty
  /// stored block follows, as after zlib's sync flush. Returns the end.
  std::uint8_t* Finish();

  /// At most so many bytes are touched for so many blocks.
  static std::size_t Bound(std::size_t bytes, std::size_t blocks) {
    return bytes + 6 * (bytes / 65535 + blocks + 1) + 16;
  }

 private:
  // Symbols of deflate: byte values, the end of a block and lengths; distances.
  static constexpr std::size_t LiteralSymbols = 288;
  static constexpr std::size_t DistanceSymbols = 30;
  static constexpr std::size_t EndOfBlock = 256;

  struct Counts {
    std::array<std::uint32_t, LiteralSymbols> mLiterals{};
    std::array<std::uint32_t, DistanceSymbols> mDistances{};
    std::size_t mExtraBits = 0;
  };
  struct Code {
    std::array<std::uint8_t, LiteralSymbols> mLiterals{};  // lengths of the code words
    std::array<std::uint8_t, DistanceSymbols> mDistances{};
  };
  enum class Kind { Stored, Coded, Matched, MatchedInFixedCode };

  struct Block {
    std::span<const std::uint8_t> mBytes;
    std::size_t mSequences = 0;  // of the list's, after those of the block before
    std::size_t mMatchedBytes = 0;
    std::size_t mSymbols = 0;
    Counts mCounts;  // with matches
    Kind mKind = Kind::Stored;
    Code mCode;
    std::size_t mBits = 0;
  };

  static void CountBytes(std::span<const std::uint8_t> bytes, Counts& counts);
  static void CountSymbols(std::span<const Sequence> sequences, Block& block);
  static bool IsEven(const Counts& counts, std::size_t bytes);
  static std::size_t MakeCode(const Counts& counts, Code& code);
  static std::size_t BitsInFixedCode(const Counts& counts);
  static void Decide(Block& block);
  bool JoinWithWaiting();
  void WriteWaiting();
  void WriteStored();
  void WriteSymbols(std::span<const std::uint8_t> bytes, std::span<const Sequence> sequences,
                    const Code& code);

  BitWriter mWriter{nullptr};
  std::span<const std::uint8_t> mStored;  // adjacent blocks that are stored as one
  std::vector<Sequence> mSequences;       // of the waiting block, then of the next
  Block mWaiting;                         // without bytes: none
  Block mNext;
};

}  // namespace ChunkCodec
