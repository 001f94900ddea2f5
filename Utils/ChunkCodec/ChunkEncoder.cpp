#include "Utils/ChunkCodec/ChunkEncoder.hpp"

#include <zlib.h>

#include <algorithm>
#include <memory>

#include "Utils/ChunkCodec/Adler32.hpp"
#include "Utils/ChunkCodec/BlockWriter.hpp"
#include "Utils/ChunkCodec/Fletcher32.hpp"
#include "Utils/ChunkCodec/MatchSearch.hpp"
#include "Utils/Process/PerThread.hpp"

namespace ChunkCodec {

namespace {

constexpr std::size_t PieceValues = std::size_t{1} << 18;
// So few bytes share one code whatever they are: it would cost time to find out, and gain little.
constexpr std::size_t OneBlockBytes = 4096;

// The framing of a stream, as numbers of two bytes, the high one first: a window of 32 KiB, fastest
// level and no dictionary; and an empty last block in the fixed code.
constexpr std::uint32_t StreamHeader = 0x7801;
constexpr std::uint32_t LastBlock = 0x0300;

// Memory that is not initialised. It grows by discarding its contents.
class Buffer {
 public:
  std::uint8_t* WithRoomFor(std::size_t bytes) {
    if (bytes > mRoom) {
      *this = Buffer();
      mpBytes = std::make_unique_for_overwrite<std::uint8_t[]>(bytes);
      mRoom = bytes;
    }
    return mpBytes.get();
  }

 private:
  std::unique_ptr<std::uint8_t[]> mpBytes;
  std::size_t mRoom = 0;
};

// What a thread needs to encode pieces, kept from one to the next.
struct Workspace {
  MatchSearch mSearch;
  BlockWriter mWriter;
  Buffer mPlanes;
  Buffer mEncoded;
  bool mIsInUse = false;  // and stays so if memory runs out: what it holds is of no use then
};

Workspace& ThreadWorkspace() {
  auto& workspace = PerThread<Workspace>();
  if (workspace.mIsInUse) {
    workspace = Workspace();
  }
  return workspace;
}

void AppendHighByteFirst(std::uint32_t number, int bytes, std::vector<std::byte>& out) {
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
    out.push_back(static_cast<std::byte>(number >> shift));
  }
}

// Bytes that follow one another in the stream, in planes of equal length, and before them, in
// memory as in the stream, others within reach of a match.
struct PlaneRun {
  std::size_t mHistory;
  std::span<const std::uint8_t> mBytes;
  std::size_t mPlaneBytes;
};

std::size_t DeflatedBound(const PlaneRun& run) {
  const std::size_t planes = run.mBytes.size() / run.mPlaneBytes + 1;
  return BlockWriter::Bound(run.mBytes.size(),
                            planes + run.mBytes.size() / MatchSearch::BlockSymbols);
}

// Writes blocks from a byte boundary to a byte boundary and returns the end.
std::uint8_t* Deflate(const PlaneRun& run, Workspace& workspace, std::uint8_t* out) {
  MatchSearch& search = workspace.mSearch;
  BlockWriter& writer = workspace.mWriter;
  const std::uint8_t* const origin = run.mBytes.data() - run.mHistory;
  const bool isOneBlock = run.mBytes.size() <= OneBlockBytes;
  search.Start(origin,
               isOneBlock ? MatchSearch::Looks::Everywhere : MatchSearch::Looks::ThinningOut);
  search.Learn({origin, run.mHistory});
  writer.Start(out);
  const std::size_t planeBytes = isOneBlock ? run.mBytes.size() : run.mPlaneBytes;
  for (std::size_t first = 0; first < run.mBytes.size(); first += planeBytes) {
    auto plane = run.mBytes.subspan(first, planeBytes);
    search.StartPlane();
    while (!plane.empty()) {
      const std::size_t taken = search.TakeBlock(plane, writer.Sequences());
      writer.Add(plane.first(taken));
      plane = plane.subspan(taken);
    }
  }
  return writer.Finish();
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
  workspace.mIsInUse = true;
  const std::size_t first = FirstValue(piece);
  const std::size_t values = FirstValue(piece + 1) - first;

  const std::size_t most = MatchSearch::MaxDistance;
  std::vector<PlaneRun> runs;
  if (Has(mFilters, sShuffle)) {
    // The stream has the planes one after the other. Before a later piece of a plane stand bytes of
    // the same plane, and before the plane of an only piece the planes before it.
    const std::size_t history = std::min(first, most);
    const std::size_t stride = history + values;
    std::uint8_t* const planes = workspace.mPlanes.WithRoomFor(PlaneCount * stride);
    Shuffle(mValues.subspan(first - history, stride), planes, stride);
    if (mPieceCount == 1) {
      runs.push_back({0, {planes, PlaneCount * values}, values});
    } else {
      for (std::size_t p = 0; p < PlaneCount; ++p) {
        runs.push_back({history, {planes + p * stride + history, values}, values});
      }
    }
  } else {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(mValues.data() + first);
    const std::size_t history = std::min(first * sizeof(double), most);
    runs.push_back({history, {bytes, values * sizeof(double)}, values * sizeof(double)});
  }

  Piece result;
  for (std::size_t r = 0; r < runs.size(); ++r) {
    const auto bytes = runs[r].mBytes;
    const auto* encoded = reinterpret_cast<const std::byte*>(bytes.data());
    Piece::PlaneSlice& slice = result.mSlices[r];
    slice = {bytes.size(), bytes.size(), AdlerOfNothing};
    if (Has(mFilters, sDeflate) && !bytes.empty()) {
      std::uint8_t* const begin = workspace.mEncoded.WithRoomFor(DeflatedBound(runs[r]));
      slice.mSize = static_cast<std::size_t>(Deflate(runs[r], workspace, begin) - begin);
      slice.mAdler32 = Adler32(bytes.data(), bytes.size());
      encoded = reinterpret_cast<const std::byte*>(begin);
    }
    result.mBytes.insert(result.mBytes.end(), encoded, encoded + slice.mSize);
  }
  workspace.mIsInUse = false;
  return result;
}

std::vector<std::byte> ChunkEncoder::Assemble(std::span<const Piece> pieces) const {
  constexpr std::size_t framing = 16;
  std::size_t size = framing;
  for (const Piece& piece : pieces) {
    size += piece.mBytes.size();
  }
  std::vector<std::byte> chunk;
  chunk.reserve(size);
  if (Has(mFilters, sDeflate)) {
    AppendHighByteFirst(StreamHeader, 2, chunk);
  }
  std::uint32_t adler = AdlerOfNothing;
  std::vector<std::size_t> next(pieces.size());
  for (std::size_t p = 0; p < PlaneCount; ++p) {
    for (std::size_t i = 0; i < pieces.size(); ++i) {
      const Piece::PlaneSlice& slice = pieces[i].mSlices[p];
      const auto from = pieces[i].mBytes.begin() + static_cast<std::ptrdiff_t>(next[i]);
      chunk.insert(chunk.end(), from, from + static_cast<std::ptrdiff_t>(slice.mSize));
      next[i] += slice.mSize;
      adler = static_cast<std::uint32_t>(
          adler32_combine(adler, slice.mAdler32, static_cast<z_off_t>(slice.mRawSize)));
    }
  }
  if (Has(mFilters, sDeflate)) {
    AppendHighByteFirst(LastBlock, 2, chunk);
    AppendHighByteFirst(adler, 4, chunk);
  }
  if (Has(mFilters, sFletcher32)) {
    AppendFletcher32(chunk);
  }
  return chunk;
}

}  // namespace ChunkCodec
