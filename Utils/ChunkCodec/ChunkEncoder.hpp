// Filters one chunk as HDF5's filters would, in a fraction of their time: what comes out is read by
// any HDF5 (H5Dwrite_chunk, filter mask 0), but is not byte for byte what its filters write.
//
// After the shuffle a chunk is eight byte planes, and those of mantissa noise do not compress. What
// deflate is slow at is finding that out. Here the search for matches thins out where it finds
// none, and each block of a plane is then stored, coded or written with matches, whichever is
// shortest. All blocks form one ordinary stream of the zlib format (RFC 1950). Pieces end at byte
// boundaries, and what stands in one depends on the values alone: they can be encoded on any number
// of threads, in any order, with the same result.
//
// The result is at most some 2 % larger than that of zlib's level 1 (for columns that shrink to
// nearly nothing: 0.2 % of the values' size), and often smaller.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "Utils/ChunkCodec/Filters.hpp"
#include "Utils/ChunkCodec/Shuffle.hpp"

#pragma GCC visibility push(default)

namespace ChunkCodec {

/// Filters a full chunk; CanEncode() says whether that can be done. The result is at most 0.1 % and
/// 100 bytes larger than the values.
std::vector<std::byte> EncodeChunk(std::span<const double> values, const Filters& filters);

/// A ChunkEncoder does so in steps, for a chunk that several threads share.
///
/// Memory: beyond the values, the pieces and the assembled chunk, each of the encoded size; and
/// each thread that encodes keeps a workspace of up to 5 MB until it ends.
class ChunkEncoder {
 public:
  /// The encoded form of PieceCount()'s i-th run of values: a slice of every plane.
  struct Piece {
    struct PlaneSlice {
      std::size_t mSize = 0;     // in mBytes, where the slices follow one another
      std::size_t mRawSize = 0;  // before deflate
      std::uint32_t mAdler32 = 1;
    };
    std::vector<std::byte> mBytes;
    std::array<PlaneSlice, PlaneCount> mSlices;
  };

  /// Values and filters are lent. The values must live, unchanged, until the last piece is encoded,
  /// and the filters until the pieces are assembled.
  ChunkEncoder(std::span<const double> values, const Filters& filters);

  /// How many pieces there are: one per 256 Ki values begun, all of nearly equal length.
  std::size_t PieceCount() const { return mPieceCount; }

  /// Any thread may encode any piece.
  Piece EncodePiece(std::size_t piece) const;

  /// The filtered chunk, from all the pieces in order.
  std::vector<std::byte> Assemble(std::span<const Piece> pieces) const;

 private:
  std::size_t FirstValue(std::size_t piece) const;

  std::span<const double> mValues;
  const Filters& mFilters;
  std::size_t mPieceCount;
};

}  // namespace ChunkCodec

#pragma GCC visibility pop
