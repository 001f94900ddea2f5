// Deflate (RFC 1951) for byte planes. What deflate is slow at is finding out that noise does not
// compress, so a look at each plane decides first whether matches can pay: if so zlib searches them
// (level 1), else the bytes are coded without matches or stored.
#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace ChunkCodec {

/// Holds zlib's tables (some 270 KB), to be used for one piece after the other; not by two threads
/// at once. What it writes depends on the arguments of the call only.
class PieceDeflate {
 public:
  /// How far back a match may lie.
  static constexpr std::size_t MaxHistory = 32768;

  /// The bytes of one plane within a piece, and before them, in memory as in the stream, up to
  /// MaxHistory others.
  struct Plane {
    std::span<const std::uint8_t> mHistory;
    std::span<const std::uint8_t> mBytes;
  };

  PieceDeflate();
  ~PieceDeflate();
  PieceDeflate(const PieceDeflate&) = delete;
  PieceDeflate& operator=(const PieceDeflate&) = delete;

  /// Writes blocks for the planes, one plane after the other, none of the blocks marked as the
  /// stream's last, from a byte boundary to a byte boundary. A plane whose history is the plane
  /// before it may have blocks in common with that one; no other has. Sets ends[p] to the end of
  /// the last block that plane p is in, and touches at most Bound() bytes of `out` for each plane.
  void Deflate(std::span<const Plane> planes, std::uint8_t* out, std::span<std::uint8_t*> ends);
  static std::size_t Bound(std::size_t planeBytes);

 private:
  struct Segment;

  static std::vector<Segment> CutAtRuns(std::span<const Plane> planes);
  void Decide(Segment& segment);
  double MatchShare(const Plane& plane);
  static void SpendAllowance(std::span<Segment> segments);
  std::uint8_t* WriteGroup(std::span<Segment> group, std::uint8_t* out);
  std::size_t WithMatches(const Plane& plane, std::uint8_t* out, std::size_t room);

  z_stream mStream{};
};

}  // namespace ChunkCodec
