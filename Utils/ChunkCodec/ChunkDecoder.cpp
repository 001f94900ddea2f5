#include "Utils/ChunkCodec/ChunkDecoder.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#include "Utils/ChunkCodec/Fletcher32.hpp"
#include "Utils/ChunkCodec/Inflate.hpp"
#include "Utils/ChunkCodec/Shuffle.hpp"

namespace ChunkCodec {

namespace {

constexpr std::size_t ChecksumBytes = 4;

DecodeStatus StripChecksum(std::span<const std::byte>& stored) {
  if (stored.size() < ChecksumBytes) {
    return DecodeStatus::ShortStream;
  }
  const auto tail = stored.last(ChecksumBytes);
  stored = stored.first(stored.size() - ChecksumBytes);
  std::uint32_t expected = 0;
  for (std::size_t i = 0; i < ChecksumBytes; ++i) {
    expected |= std::to_integer<std::uint32_t>(tail[i]) << 8 * i;
  }
  const std::uint32_t checksum = Fletcher32(stored);
  return expected == checksum || expected == Fletcher32OfOldFiles(checksum)
             ? DecodeStatus::Ok
             : DecodeStatus::WrongChecksum;
}

DecodeStatus CheckSize(std::size_t actual, std::size_t expected) {
  return actual < expected   ? DecodeStatus::TooFewValues
         : actual > expected ? DecodeStatus::TooManyValues
                             : DecodeStatus::Ok;
}

}  // namespace

const char* Describe(DecodeStatus status) {
  switch (status) {
    case DecodeStatus::Ok:
      return "ok";
    case DecodeStatus::WrongChecksum:
      return "wrong checksum";
    case DecodeStatus::ShortStream:
      return "short stream";
    case DecodeStatus::CorruptStream:
      return "corrupt stream";
    case DecodeStatus::TooFewValues:
      return "too few values";
    case DecodeStatus::TooManyValues:
      return "too many values";
  }
  return "unknown";
}

DecodeStatus DecodeChunk(std::span<const std::byte> stored, const Filters& filters,
                         std::size_t chunkValues, std::span<const ChunkPart> parts) {
  if (filters.mFletcher32) {
    if (const DecodeStatus status = StripChecksum(stored); status != DecodeStatus::Ok) {
      return status;
    }
  }
  const std::size_t chunkBytes = chunkValues * sizeof(double);
  std::unique_ptr<std::byte[]> inflated;
  if (filters.mDeflate) {
    if (!filters.mShuffle && parts.size() == 1 && parts[0].mValues.size() == chunkValues) {
      return Inflate(stored, std::as_writable_bytes(parts[0].mValues));
    }
    inflated = std::make_unique_for_overwrite<std::byte[]>(chunkBytes);
    const std::span<std::byte> target(inflated.get(), chunkBytes);
    if (const DecodeStatus status = Inflate(stored, target); status != DecodeStatus::Ok) {
      return status;
    }
    stored = target;
  } else if (const DecodeStatus status = CheckSize(stored.size(), chunkBytes);
             status != DecodeStatus::Ok) {
    return status;
  }
  for (const ChunkPart& part : parts) {
    if (filters.mShuffle) {
      Unshuffle(reinterpret_cast<const std::uint8_t*>(stored.data()) + part.mFirst, chunkValues,
                part.mValues);
    } else {
      const auto bytes = std::as_writable_bytes(part.mValues);
      std::copy_n(stored.begin() + static_cast<std::ptrdiff_t>(part.mFirst * sizeof(double)),
                  bytes.size(), bytes.begin());
    }
  }
  return DecodeStatus::Ok;
}

DecodeStatus DecodeChunk(std::span<const std::byte> stored, const Filters& filters,
                         std::span<double> values) {
  const ChunkPart whole[] = {{0, values}};
  return DecodeChunk(stored, filters, values.size(), whole);
}

}  // namespace ChunkCodec
