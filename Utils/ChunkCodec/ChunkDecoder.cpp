#include "Utils/ChunkCodec/ChunkDecoder.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

#include "Utils/ChunkCodec/Fletcher32.hpp"
#include "Utils/ChunkCodec/Inflate.hpp"
#include "Utils/ChunkCodec/Shuffle.hpp"

namespace ChunkCodec {

namespace {

constexpr std::size_t ChecksumBytes = 4;
// A match of 258 bytes takes two bits at least.
constexpr std::size_t MostDeflated = 1032;

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

// As HDF5 does: what is left over by whole elements stays as it is, at the end.
void UnshuffleElements(std::vector<std::byte>& bytes, std::size_t elementBytes) {
  const std::size_t elements = elementBytes == 0 ? 0 : bytes.size() / elementBytes;
  if (elementBytes <= 1 || elements <= 1) {
    return;
  }
  std::vector<std::byte> whole = bytes;
  for (std::size_t k = 0; k < elementBytes; ++k) {
    for (std::size_t i = 0; i < elements; ++i) {
      whole[i * elementBytes + k] = bytes[k * elements + i];
    }
  }
  bytes = std::move(whole);
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

DecodeStatus UndoFilters(std::vector<std::byte>& bytes, std::span<const FilterStep> steps,
                         std::size_t chunkBytes) {
  for (; !steps.empty(); steps = steps.first(steps.size() - 1)) {
    switch (steps.back().mKind) {
      case FilterStep::Kind::Fletcher32: {
        std::span<const std::byte> stored = bytes;
        if (const DecodeStatus status = StripChecksum(stored); status != DecodeStatus::Ok) {
          return status;
        }
        bytes.resize(stored.size());
        break;
      }
      case FilterStep::Kind::Deflate: {
        const auto checksums =
            std::ranges::count(steps, FilterStep::Kind::Fletcher32, &FilterStep::mKind);
        const std::size_t inflatedBytes =
            chunkBytes + ChecksumBytes * static_cast<std::size_t>(checksums);
        if (inflatedBytes / MostDeflated > bytes.size()) {
          return DecodeStatus::TooFewValues;
        }
        std::vector<std::byte> inflated(inflatedBytes);
        if (const DecodeStatus status = Inflate(bytes, inflated); status != DecodeStatus::Ok) {
          return status;
        }
        bytes = std::move(inflated);
        break;
      }
      case FilterStep::Kind::Shuffle:
        UnshuffleElements(bytes, steps.back().mElementBytes);
        break;
    }
  }
  return CheckSize(bytes.size(), chunkBytes);
}

}  // namespace ChunkCodec
