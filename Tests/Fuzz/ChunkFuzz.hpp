// What the targets of encoding and of decoding chunks share.
#pragma once

#include <zlib.h>

#include <cstring>
#include <span>
#include <vector>

#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/ChunkCodec/ChunkDecoder.hpp"
#include "Utils/ChunkCodec/ChunkEncoder.hpp"

namespace Fuzz {

using Values = std::vector<double>;

/// A byte whose bits choose the filters and, in decoding, that the right checksum is appended.
struct Flags {
  explicit Flags(char bits)
      : mShuffle((bits & 1) != 0),
        mDeflate((bits & 2) != 0),
        mFletcher32((bits & 4) != 0),
        mIsSealed((bits & 8) != 0) {}
  ChunkCodec::Filters Filters() const {
    return ChunkCodec::FiltersOfDoubles(mShuffle, mDeflate, mFletcher32);
  }
  bool mShuffle, mDeflate, mFletcher32, mIsSealed;
};

/// Also where values are NaN.
inline bool AreSameBits(const Values& a, const Values& b) {
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), 8 * a.size()) == 0);
}

/// The reader of everybody else: whether the deflated bytes hold exactly so many values, and which.
/// Bytes that follow are ignored, as HDF5 does; `used` is the number of the others.
inline bool InflatesWithZlib(std::span<const std::byte> stream, bool isShuffled, Values& values,
                             std::size_t& used) {
  const std::size_t bytes = values.size() * sizeof(double);
  std::vector<Bytef> inflated(bytes + 1);  // zlib takes no null pointer
  uLongf size = bytes;
  uLong read = stream.size();
  const auto* next = reinterpret_cast<const Bytef*>(stream.data());
  const bool isDone = uncompress2(inflated.data(), &size, next, &read) == Z_OK && size == bytes;
  used = read;
  for (std::size_t i = 0; i < bytes; ++i) {
    reinterpret_cast<Bytef*>(values.data())[i] =
        inflated[isShuffled ? i % sizeof(double) * values.size() + i / sizeof(double) : i];
  }
  return isDone;
}

/// What the values are stored as, once that has been decoded again.
inline std::vector<std::byte> CheckedEncoding(const Values& values, const Flags& flags) {
  std::vector<std::byte> stored = EncodeChunk(values, flags.Filters());
  stored.shrink_to_fit();  // so that a read beyond it is one beyond its allocation
  Values decoded(values.size());
  const ChunkCodec::DecodeStatus status = DecodeChunk(stored, flags.Filters(), decoded);
  FUZZ_CHECK(status == ChunkCodec::DecodeStatus::Ok, Describe(status));
  FUZZ_CHECK(AreSameBits(decoded, values), "values");
  return stored;
}

}  // namespace Fuzz
