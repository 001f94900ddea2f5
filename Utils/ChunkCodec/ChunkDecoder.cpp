#include "Utils/ChunkCodec/ChunkDecoder.hpp"

#include <algorithm>
#include <utility>

#include "Utils/ChunkCodec/Fletcher32.hpp"
#include "Utils/ChunkCodec/Inflate.hpp"
#include "Utils/ChunkCodec/Shuffle.hpp"

namespace ChunkCodec {

namespace {

constexpr std::size_t sChecksumBytes = 4;
// A match of 258 bytes takes two bits at least.
constexpr std::size_t sMostDeflated = 1032;

DecodeStatus CheckSize(std::size_t actual, std::size_t expected) {
  return actual < expected   ? DecodeStatus::TooFewValues
         : actual > expected ? DecodeStatus::TooManyValues
                             : DecodeStatus::Ok;
}

}  // namespace

const char* Describe(DecodeStatus status) {
  // In the order of the enumeration.
  static constexpr const char* texts[] = {"ok",
                                          "wrong checksum",
                                          "short stream",
                                          "corrupt stream",
                                          "too few values",
                                          "too many values"};
  return texts[static_cast<std::size_t>(status)];
}

DecodeStatus ChunkDecoder::Decode(std::span<const std::byte> stored, const ChunkFormat& format,
                                  std::uint32_t skipped) {
  mBytes = stored;
  mElementBytes = format.mElementBytes;
  mIsShuffled = false;
  const auto isUsed = [skipped](std::size_t i) { return (skipped >> i & 1) == 0; };
  for (std::size_t i = format.mFilters.size(); i-- > 0;) {
    const Filter& filter = format.mFilters[i];
    if (!isUsed(i)) {
      continue;
    }
    if (i == 0 && filter.mNumber == sShuffle && filter.mParameter == mElementBytes) {
      mIsShuffled = true;
      break;
    }
    // Deflate compressed the checksums of the filters before it along with the elements.
    std::size_t inflatedBytes = format.mChunkBytes;
    for (std::size_t k = 0; k < i; ++k) {
      inflatedBytes += format.mFilters[k].mNumber == sFletcher32 && isUsed(k) ? sChecksumBytes : 0;
    }
    const DecodeStatus status = filter.mNumber == sFletcher32 ? StripChecksum()
                                : filter.mNumber == sDeflate  ? Inflate(inflatedBytes)
                                                              : UnshuffleAll(filter.mParameter);
    if (status != DecodeStatus::Ok) {
      return status;
    }
  }
  return CheckSize(mBytes.size(), format.mChunkBytes);
}

DecodeStatus ChunkDecoder::StripChecksum() {
  if (mBytes.size() < sChecksumBytes) {
    return DecodeStatus::ShortStream;
  }
  std::uint32_t expected = 0;
  for (std::size_t i = 1; i <= sChecksumBytes; ++i) {
    expected = expected << 8 | std::to_integer<std::uint32_t>(mBytes[mBytes.size() - i]);
  }
  mBytes = mBytes.first(mBytes.size() - sChecksumBytes);
  const std::uint32_t checksum = Fletcher32(mBytes);
  return expected == checksum || expected == Fletcher32OfOldFiles(checksum)
             ? DecodeStatus::Ok
             : DecodeStatus::WrongChecksum;
}

DecodeStatus ChunkDecoder::Inflate(std::size_t inflatedBytes) {
  const std::size_t room =
      inflatedBytes / sMostDeflated > mBytes.size() ? sMostDeflated * mBytes.size() : inflatedBytes;
  auto inflated = std::make_unique_for_overwrite<std::byte[]>(room);
  const std::span<std::byte> target(inflated.get(), room);
  if (const DecodeStatus status = ChunkCodec::Inflate(mBytes, target); status != DecodeStatus::Ok) {
    return status;
  }
  mpOwnBytes = std::move(inflated);
  mBytes = target;
  return CheckSize(room, inflatedBytes);
}

// Bytes that are left over by whole elements stay as they are, at the end, as HDF5 has it.
DecodeStatus ChunkDecoder::UnshuffleAll(std::size_t elementBytes) {
  if (elementBytes == 0 || mBytes.size() < 2 * elementBytes) {
    // A single element is not taken apart, whatever size of it a damaged file claims.
    return DecodeStatus::Ok;
  }
  const std::size_t whole = mBytes.size() / elementBytes * elementBytes;
  auto elements = std::make_unique_for_overwrite<std::byte[]>(mBytes.size());
  Unshuffle(mBytes.data(), whole / elementBytes, elementBytes, {elements.get(), whole});
  std::ranges::copy(mBytes.subspan(whole), elements.get() + whole);
  mBytes = {elements.get(), mBytes.size()};
  mpOwnBytes = std::move(elements);
  return DecodeStatus::Ok;
}

void ChunkDecoder::Take(std::size_t first, std::span<std::byte> elements) const {
  if (mIsShuffled) {
    Unshuffle(mBytes.data() + first, mBytes.size() / mElementBytes, mElementBytes, elements);
  } else {
    std::ranges::copy(mBytes.subspan(first * mElementBytes, elements.size()), elements.begin());
  }
}

}  // namespace ChunkCodec
