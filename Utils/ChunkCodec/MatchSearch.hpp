// Finds repeats within reach of deflate's matches (LZ77), quickly rather than thoroughly.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace ChunkCodec {

/// Bytes as they are, and after them mLength bytes that stand mDistance before as well. A length of
/// 0 is no match.
struct Sequence {
  std::uint32_t mLiterals;
  std::uint16_t mLength;
  std::uint16_t mDistance;
};

/// Remembers where words of four bytes stood last. What it finds depends on the bytes since Start()
/// only.
class MatchSearch {
 public:
  static constexpr std::size_t MaxDistance = 32768;
  /// Literals and matches that make a block: a code of its own for so many costs little, and
  /// follows drifting data.
  static constexpr std::size_t BlockSymbols = 16384;

  MatchSearch();

  /// Where nothing repeats, the search looks ever less often, so that noise costs next to nothing;
  /// or at every byte, in few of them.
  enum class Looks { ThinningOut, Everywhere };

  /// Forgets everything. What follows lies behind `origin`, in memory as in the stream.
  void Start(const std::uint8_t* origin, Looks looks);

  /// Takes notice of bytes that are in the stream already.
  void Learn(std::span<const std::uint8_t> bytes);

  /// Looks closely again: what follows is of another kind than what came before.
  void StartPlane() { mLooksInVain = 0; }

  /// Describes the first bytes in `sequences`, as many as make a block, and returns their number.
  std::size_t TakeBlock(std::span<const std::uint8_t> bytes, std::vector<Sequence>& sequences);

 private:
  struct Match {
    std::size_t mLength = 0;
    std::size_t mDistance = 0;
  };

  std::uint32_t Position(const std::uint8_t* p) const {
    return mFirstPosition + static_cast<std::uint32_t>(p - mpOrigin);
  }
  void Remember(const std::uint8_t* p);
  Match Find(const std::uint8_t* p, const std::uint8_t* end);

  // Two positions for each hash, the later one first. Positions count on from one origin to the
  // next, so that none has to be erased.
  std::vector<std::uint32_t> mLastSeen;
  const std::uint8_t* mpOrigin = nullptr;
  std::uint32_t mFirstPosition = 0;
  std::uint32_t mNextPosition = 1;
  Looks mLooks = Looks::ThinningOut;
  std::size_t mLooksInVain = 0;
};

}  // namespace ChunkCodec
