// The input is a byte of flags, two bytes that give the number of values, and the stored bytes of a
// chunk. The flags are bits: 1 shuffle, 2 deflate, 4 Fletcher-32, 8 the right checksum is appended.
#include <zlib.h>

#include <cstring>
#include <span>
#include <vector>

#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/ChunkCodec/ChunkDecoder.hpp"
#include "Utils/ChunkCodec/ChunkEncoder.hpp"
#include "Utils/ChunkCodec/Fletcher32.hpp"
#include "Utils/ChunkCodec/Shuffle.hpp"

namespace {

using ChunkCodec::DecodeStatus;

// What the compressed bytes hold according to zlib, whether that fills `planes` exactly. Bytes that
// follow are ignored, as HDF5 does.
bool InflatesWithZlib(std::span<const std::byte> stream, std::vector<std::uint8_t>& planes) {
  auto size = static_cast<uLongf>(planes.size());
  auto read = static_cast<uLong>(stream.size());  // what was read is of no interest
  std::uint8_t none = 0;                          // zlib takes no null pointer
  return uncompress2(planes.empty() ? &none : planes.data(), &size,
                     reinterpret_cast<const Bytef*>(stream.data()), &read) == Z_OK &&
         size == planes.size();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t header = 3;
  constexpr std::size_t mostValues = 4096;
  if (size < header) {
    return 0;
  }
  const bool isSealed = (data[0] & 8U) != 0;
  const ChunkCodec::Filters filters{(data[0] & 1U) != 0, (data[0] & 2U) != 0, (data[0] & 4U) != 0};
  std::vector<double> values((data[1] + 256U * data[2]) % (mostValues + 1));

  const auto input = std::as_bytes(std::span(data + header, size - header));
  std::vector<std::byte> stored(input.begin(), input.end());
  if (filters.mFletcher32 && isSealed) {
    const std::uint32_t checksum = ChunkCodec::Fletcher32(stored);
    for (int shift = 0; shift < 32; shift += 8) {
      stored.push_back(static_cast<std::byte>(checksum >> shift));
    }
  }
  stored.shrink_to_fit();

  const DecodeStatus status = DecodeChunk(stored, filters, values);
  FUZZ_CHECK(std::strcmp(Describe(status), "unknown") != 0, "status");
  const std::size_t bytes = values.size() * sizeof(double);

  // Whatever zlib inflates, HDF5 reads, and so must we.
  std::vector<std::uint8_t> planes(bytes);
  if (filters.mDeflate && (isSealed || !filters.mFletcher32) && InflatesWithZlib(input, planes)) {
    FUZZ_CHECK(status == DecodeStatus::Ok, Describe(status));
    std::vector<double> expected(values.size());
    if (filters.mShuffle) {
      ChunkCodec::Unshuffle(planes.data(), expected.size(), expected);
    } else if (bytes > 0) {
      std::memcpy(expected.data(), planes.data(), bytes);
    }
    FUZZ_CHECK(bytes == 0 || std::memcmp(values.data(), expected.data(), bytes) == 0, "values");
  }
  if (status == DecodeStatus::Ok) {
    const std::vector<std::byte> encoded = EncodeChunk(values, filters);
    std::vector<double> again(values.size());
    FUZZ_CHECK(DecodeChunk(encoded, filters, again) == DecodeStatus::Ok, "encoded again");
    FUZZ_CHECK(bytes == 0 || std::memcmp(values.data(), again.data(), bytes) == 0, "values");
  }
  return 0;
}
