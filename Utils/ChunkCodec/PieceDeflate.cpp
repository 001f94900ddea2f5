#include "Utils/ChunkCodec/PieceDeflate.hpp"

#include <algorithm>
#include <array>
#include <new>
#include <optional>
#include <utility>

#include "Utils/ChunkCodec/LiteralBlocks.hpp"
#include "Utils/ChunkCodec/PlaneStatistics.hpp"

namespace ChunkCodec {

namespace {

// Where runs of one value begin and end is found to this many bytes.
constexpr std::size_t RunsBytes = 1024;

// Bytes of which more than this share is left in a code without matches are noise, unless they
// repeat: noise with fewer repeats than the second share is not worth a sample, and with as many as
// the third it needs none to be worth a search.
constexpr double Noise = 0.9;
constexpr double RepeatsSomewhere = 1.0 / 128;
constexpr double RepeatsThroughout = 0.3;

// Less is not worth sampling.
constexpr std::size_t MinSampledBytes = 4096;
constexpr std::size_t MinSampleBytes = 2048;
constexpr std::size_t MaxSampleBytes = 4096;
constexpr std::size_t SampleEvery = 98304;

// What may be given away of a piece's size to spare its writer and its readers time.
constexpr double Allowance = 0.015;

constexpr std::size_t DoesNotFit = static_cast<std::size_t>(-1);

}  // namespace

// Bytes of one plane that are written in one way, and what has been decided for them.
struct PieceDeflate::Segment {
  Plane mPlane;
  std::size_t mPlaneIndex = 0;
  bool mIsRuns = false;
  bool mIsNoise = false;
  bool mHasMatches = false;
  std::optional<LiteralBlocks> mLiterals;  // not planned for runs
  double mLiteralSize = 0;
  double mMatchSize = 0;  // estimated
};

PieceDeflate::PieceDeflate() {
  // Raw deflate, level 1, with the window and the memory level that HDF5's filter uses.
  if (deflateInit2(&mStream, 1, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::bad_alloc();
  }
}

PieceDeflate::~PieceDeflate() {
  deflateEnd(&mStream);
}

std::size_t PieceDeflate::Bound(std::size_t planeBytes) {
  // Every cut can cost a stored block's header more.
  return LiteralBlocks::StoredSize(planeBytes) + 5 * (planeBytes / RunsBytes + 1) +
         LiteralBlocks::WriteSlack;
}

void PieceDeflate::Deflate(std::span<const Plane> planes, std::uint8_t* out,
                           std::span<std::uint8_t*> ends) {
  std::fill(ends.begin(), ends.end(), out);  // planes without bytes
  std::vector<Segment> segments = CutAtRuns(planes);
  for (Segment& segment : segments) {
    Decide(segment);
  }
  SpendAllowance(segments);
  for (std::size_t first = 0; first < segments.size();) {
    // Segments in a row that are searched for matches are searched as one.
    std::size_t end = first + 1;
    while (end < segments.size() && segments[end - 1].mHasMatches && segments[end].mHasMatches &&
           !segments[end].mPlane.mHistory.empty() &&
           &segments[end].mPlane.mHistory.back() == &segments[end - 1].mPlane.mBytes.back()) {
      ++end;
    }
    out = WriteGroup(std::span(segments).subspan(first, end - first), out);
    for (; first < end; ++first) {
      ends[segments[first].mPlaneIndex] = out;
    }
  }
}

std::vector<PieceDeflate::Segment> PieceDeflate::CutAtRuns(std::span<const Plane> planes) {
  std::vector<Segment> segments;
  for (std::size_t p = 0; p < planes.size(); ++p) {
    const auto [history, bytes] = planes[p];
    for (std::size_t first = 0; first < bytes.size(); first += RunsBytes) {
      const auto part = bytes.subspan(first, std::min(RunsBytes, bytes.size() - first));
      const bool isRuns = IsRuns(part);
      if (first > 0 && segments.back().mIsRuns == isRuns) {
        auto& all = segments.back().mPlane.mBytes;
        all = {all.data(), all.size() + part.size()};
        continue;
      }
      const std::size_t before = std::min(history.size() + first, MaxHistory);
      segments.push_back({.mPlane = {{part.data() - before, before}, part},
                          .mPlaneIndex = p,
                          .mIsRuns = isRuns,
                          .mLiterals = {}});
    }
  }
  return segments;
}

void PieceDeflate::Decide(Segment& segment) {
  const auto [history, bytes] = segment.mPlane;
  if (segment.mIsRuns) {
    segment.mLiteralSize = static_cast<double>(bytes.size());
    segment.mHasMatches = true;
    return;
  }
  segment.mLiterals.emplace(bytes);
  segment.mLiteralSize = static_cast<double>(segment.mLiterals->Size());
  segment.mIsNoise = segment.mLiteralSize > Noise * static_cast<double>(bytes.size());
  double repeats = 0;
  if (segment.mIsNoise) {
    repeats = RepeatShare({history.data(), history.size() + bytes.size()});
    if (repeats < RepeatsSomewhere) {
      return;
    }
  }
  if (repeats < RepeatsThroughout && bytes.size() >= MinSampledBytes) {
    segment.mMatchSize = segment.mLiteralSize * MatchShare(segment.mPlane);
  }
  segment.mHasMatches = segment.mMatchSize < segment.mLiteralSize;
}

// The size with matches over that without, from samples that have history as in the stream.
double PieceDeflate::MatchShare(const Plane& plane) {
  // The code of a stored sample has no header, that of the matches has one of about this size,
  // which it shares with the bytes around it in the stream.
  constexpr std::size_t headerBytes = 64;
  const std::size_t size = plane.mBytes.size();
  const std::size_t samples = size / SampleEvery + 1;
  const std::size_t sampleBytes =
      std::min(size, std::clamp(size / 8, MinSampleBytes, MaxSampleBytes));
  std::array<std::uint8_t, 2 * MaxSampleBytes> scratch;
  std::size_t literalSum = 0;
  std::size_t matchSum = 0;
  for (std::size_t s = 0; s < samples; ++s) {
    const std::size_t first = (size - sampleBytes) * (2 * s + 1) / (2 * samples);
    const std::size_t history =
        std::min({first + plane.mHistory.size(), MaxHistory, 8 * sampleBytes});
    const auto* bytes = plane.mBytes.data() + first;
    const Plane sample{{bytes - history, history}, {bytes, sampleBytes}};
    const std::size_t literal = LiteralBlocks(sample.mBytes).Size();
    literalSum += literal;
    matchSum += std::min(WithMatches(sample, scratch.data(), scratch.size()), scratch.size());
    matchSum -= literal >= sampleBytes ? std::min(matchSum, headerBytes) : 0;
  }
  return static_cast<double>(matchSum) / static_cast<double>(literalSum);
}

// Takes back the search for matches where it gains least for its time, as far as the allowance
// goes. It is slow in what is nearly noise only.
void PieceDeflate::SpendAllowance(std::span<Segment> segments) {
  double size = 0;
  std::vector<std::pair<double, Segment*>> gains;
  for (Segment& segment : segments) {
    size += segment.mHasMatches ? segment.mMatchSize : segment.mLiteralSize;
    if (segment.mHasMatches && segment.mIsNoise) {
      gains.emplace_back(1 - segment.mMatchSize / segment.mLiteralSize, &segment);
    }
  }
  std::sort(gains.begin(), gains.end());
  double left = Allowance * size;
  for (const auto& [gain, segment] : gains) {
    left -= gain * segment->mLiteralSize;
    if (left < 0) {
      return;
    }
    segment->mHasMatches = false;
  }
}

// Writes adjacent segments that are all searched for matches, or one of any kind.
std::uint8_t* PieceDeflate::WriteGroup(std::span<Segment> group, std::uint8_t* out) {
  if (group.front().mHasMatches) {
    Plane all = group.front().mPlane;
    if (group.front().mIsRuns) {
      all.mHistory = {};  // gains nothing
    }
    double room = group.front().mLiteralSize;
    for (const Segment& segment : group.subspan(1)) {
      const auto& bytes = segment.mPlane.mBytes;
      all.mBytes = {all.mBytes.data(), all.mBytes.size() + bytes.size()};
      room += segment.mLiteralSize;
    }
    const std::size_t size = WithMatches(all, out, static_cast<std::size_t>(room));
    if (size != DoesNotFit) {
      return out + size;
    }
  }
  for (Segment& segment : group) {
    if (!segment.mLiterals) {
      segment.mLiterals.emplace(segment.mPlane.mBytes);
    }
    out = segment.mLiterals->Write(out);
  }
  return out;
}

// Returns the size of the blocks, from a byte boundary to a byte boundary, or DoesNotFit if it is
// `room` or more.
std::size_t PieceDeflate::WithMatches(const Plane& plane, std::uint8_t* out, std::size_t room) {
  // zlib counts in 32 bits; pieces are far below. Its input is not const for historical reasons.
  deflateReset(&mStream);
  if (!plane.mHistory.empty()) {
    deflateSetDictionary(&mStream, plane.mHistory.data(), static_cast<uInt>(plane.mHistory.size()));
  }
  mStream.next_in = const_cast<std::uint8_t*>(plane.mBytes.data());
  mStream.avail_in = static_cast<uInt>(plane.mBytes.size());
  mStream.next_out = out;
  mStream.avail_out = static_cast<uInt>(room);
  deflate(&mStream, Z_SYNC_FLUSH);
  return mStream.avail_in == 0 && mStream.avail_out > 0 ? room - mStream.avail_out : DoesNotFit;
}

}  // namespace ChunkCodec
