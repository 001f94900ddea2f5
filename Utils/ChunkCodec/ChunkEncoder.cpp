#include "Utils/ChunkCodec/ChunkEncoder.hpp"

#include <zlib.h>

#include <algorithm>
#include <memory>

#include "Utils/ChunkCodec/Adler32.hpp"
#include "Utils/ChunkCodec/Fletcher32.hpp"
#include "Utils/ChunkCodec/PieceDeflate.hpp"

namespace ChunkCodec {

namespace {

constexpr std::size_t PieceValues = std::size_t{1} << 18;
// Chunks of no more bytes are deflated as one plane: the blocks of eight have a price.
constexpr std::size_t SmallChunkBytes = 4096;

// The framing of a stream, as numbers of two bytes, the high one first: a window of 32 KiB, fastest
// level and no dictionary; and an empty last block in the fixed code.
constexpr std::uint32_t StreamHeader = 0x7801;
constexpr std::uint32_t LastBlock = 0x0300;

// What a thread needs to encode pieces, kept from one to the next.
struct Workspace {
  PieceDeflate mDeflate;
  std::unique_ptr<std::uint8_t[]> mpPlanes;
  std::unique_ptr<std::uint8_t[]> mpEncoded;
  std::size_t mPlanesRoom = 0;
  std::size_t mEncodedRoom = 0;

  static void Reserve(std::size_t room, std::unique_ptr<std::uint8_t[]>& buffer,
                      std::size_t& current) {
    if (room > current) {
      buffer.reset();
      current = 0;
      buffer = std::make_unique_for_overwrite<std::uint8_t[]>(room);
      current = room;
    }
  }
};

Workspace& ThreadWorkspace() {
  thread_local Workspace workspace;
  return workspace;
}

void AppendHighByteFirst(std::uint32_t number, int bytes, std::vector<std::byte>& out) {
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
    out.push_back(static_cast<std::byte>(number >> shift));
  }
}

ChunkEncoder::Piece Copied(std::span<const PieceDeflate::Plane> planes) {
  ChunkEncoder::Piece piece;
  for (std::size_t p = 0; p < planes.size(); ++p) {
    const auto bytes = std::as_bytes(planes[p].mBytes);
    piece.mParts[p] = {bytes.size(), bytes.size(), AdlerOfNothing};
    piece.mBytes.insert(piece.mBytes.end(), bytes.begin(), bytes.end());
  }
  return piece;
}

ChunkEncoder::Piece Deflated(std::span<const PieceDeflate::Plane> planes, Workspace& workspace) {
  Workspace::Reserve(planes.size() * PieceDeflate::Bound(planes[0].mBytes.size()),
                     workspace.mpEncoded, workspace.mEncodedRoom);
  std::uint8_t* const begin = workspace.mpEncoded.get();
  std::array<std::uint8_t*, PlaneCount> ends;
  workspace.mDeflate.Deflate(planes, begin, std::span(ends).first(planes.size()));

  ChunkEncoder::Piece piece;
  const std::uint8_t* end = begin;
  for (std::size_t p = 0; p < planes.size(); ++p) {
    const auto bytes = planes[p].mBytes;
    piece.mParts[p] = {static_cast<std::size_t>(ends[p] - end), bytes.size(),
                       Adler32(bytes.data(), bytes.size())};
    end = ends[p];
  }
  piece.mBytes.assign(reinterpret_cast<const std::byte*>(begin),
                      reinterpret_cast<const std::byte*>(end));
  return piece;
}

}  // namespace

std::vector<std::byte> EncodeChunk(std::span<const double> values, const Filters& filters) {
  const ChunkEncoder encoder(values, filters);
  std::vector<ChunkEncoder::Piece> pieces(encoder.PieceCount());
  for (std::size_t piece = 0; piece < pieces.size(); ++piece) {
    pieces[piece] = encoder.EncodePiece(piece);
  }
  return encoder.Assemble(pieces);
}

ChunkEncoder::ChunkEncoder(std::span<const double> values, const Filters& filters)
    : mValues(values),
      mFilters(filters),
      mPieceCount(std::max<std::size_t>(1, (values.size() + PieceValues - 1) / PieceValues)) {}

std::size_t ChunkEncoder::FirstValue(std::size_t piece) const {
  // Pieces that are one longer come first.
  return mValues.size() / mPieceCount * piece + std::min(piece, mValues.size() % mPieceCount);
}

ChunkEncoder::Piece ChunkEncoder::EncodePiece(std::size_t piece) const {
  Workspace& workspace = ThreadWorkspace();
  const std::size_t first = FirstValue(piece);
  const std::size_t values = FirstValue(piece + 1) - first;

  // The stream has the planes one after the other. Before a later piece of a plane stand the bytes
  // of the same plane, and before the plane of an only piece the plane before it.
  std::vector<PieceDeflate::Plane> planes;
  if (mFilters.mShuffle) {
    const std::size_t history = std::min(first, PieceDeflate::MaxHistory);
    const std::size_t stride = history + values;
    Workspace::Reserve(PlaneCount * stride, workspace.mpPlanes, workspace.mPlanesRoom);
    Shuffle(mValues.subspan(first - history, stride), workspace.mpPlanes.get(), stride);
    for (std::size_t p = 0; p < PlaneCount; ++p) {
      const std::size_t before =
          mPieceCount == 1 && p > 0 ? std::min(values, PieceDeflate::MaxHistory) : history;
      const std::uint8_t* bytes = workspace.mpPlanes.get() + p * stride + history;
      planes.push_back({{bytes - before, before}, {bytes, values}});
    }
  } else {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(mValues.data() + first);
    const std::size_t before = std::min(first * sizeof(double), PieceDeflate::MaxHistory);
    planes.push_back({{bytes - before, before}, {bytes, values * sizeof(double)}});
  }
  if (!mFilters.mDeflate) {
    return Copied(planes);
  }
  if (mValues.size_bytes() <= SmallChunkBytes) {
    const std::span<const std::uint8_t> all(planes[0].mBytes.data(), mValues.size_bytes());
    planes = {{{}, all}};
  }
  return Deflated(planes, workspace);
}

std::vector<std::byte> ChunkEncoder::Assemble(std::span<const Piece> pieces) const {
  constexpr std::size_t framing = 16;
  std::size_t size = framing;
  for (const Piece& piece : pieces) {
    size += piece.mBytes.size();
  }
  std::vector<std::byte> chunk;
  chunk.reserve(size);
  if (mFilters.mDeflate) {
    AppendHighByteFirst(StreamHeader, 2, chunk);
  }
  std::uint32_t adler = AdlerOfNothing;
  std::vector<std::size_t> next(pieces.size());
  for (std::size_t p = 0; p < PlaneCount; ++p) {
    for (std::size_t i = 0; i < pieces.size(); ++i) {
      const Piece::Part& part = pieces[i].mParts[p];
      const auto from = pieces[i].mBytes.begin() + static_cast<std::ptrdiff_t>(next[i]);
      chunk.insert(chunk.end(), from, from + static_cast<std::ptrdiff_t>(part.mSize));
      next[i] += part.mSize;
      adler = static_cast<std::uint32_t>(
          adler32_combine(adler, part.mAdler32, static_cast<z_off_t>(part.mRawSize)));
    }
  }
  if (mFilters.mDeflate) {
    AppendHighByteFirst(LastBlock, 2, chunk);
    AppendHighByteFirst(adler, 4, chunk);
  }
  if (mFilters.mFletcher32) {
    const std::uint32_t checksum = Fletcher32(chunk);
    for (int shift = 0; shift < 32; shift += 8) {
      chunk.push_back(static_cast<std::byte>(checksum >> shift));
    }
  }
  return chunk;
}

}  // namespace ChunkCodec
