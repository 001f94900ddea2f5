// The input is a byte of flags, a byte that says how to repeat, and the bytes of the first values.
// The flags are bits: 1 shuffle, 2 deflate, 4 Fletcher-32. The chunk is the values 2^(low three
// bits) times, each repetition with other bits in as many low bytes as the next three bits say: so
// a short input makes long chunks of repeats, noise and what is between.
#include <zlib.h>

#include <bit>
#include <cstring>
#include <span>
#include <vector>

#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/ChunkCodec/ChunkDecoder.hpp"
#include "Utils/ChunkCodec/ChunkEncoder.hpp"
#include "Utils/ChunkCodec/Shuffle.hpp"

namespace {

using ChunkCodec::DecodeStatus;

std::vector<double> ValuesFrom(std::uint8_t repeat, std::span<const std::uint8_t> bytes) {
  constexpr std::size_t mostValues = 4096;
  std::vector<std::uint64_t> tile((bytes.size() + 7) / 8);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    tile[i / 8] |= std::uint64_t{bytes[i]} << 8 * (i % 8);
  }
  const std::size_t count = std::min(tile.size() << (repeat & 7U), mostValues);
  const unsigned noisyBytes = repeat >> 3 & 7U;
  const std::uint64_t noisyBits = (std::uint64_t{1} << 8 * noisyBytes) - 1;
  std::vector<double> values(count);
  std::uint64_t noise = 0;
  for (std::size_t i = 0; i < count; ++i) {
    values[i] = std::bit_cast<double>(tile[i % tile.size()] ^ (noise >> 7 & noisyBits));
    noise = noise * 6364136223846793005U + (i < tile.size() ? 0 : 1442695040888963407U);
  }
  return values;
}

// The reader of everybody else.
void CheckWithZlib(const std::vector<double>& values, const ChunkCodec::Filters& filters,
                   std::span<const std::byte> stored) {
  std::vector<std::uint8_t> expected(values.size() * sizeof(double) + 1);
  if (filters.mShuffle) {
    ChunkCodec::Shuffle(values, expected.data(), values.size());
  } else if (!values.empty()) {
    std::memcpy(expected.data(), values.data(), values.size() * sizeof(double));
  }
  std::vector<std::uint8_t> inflated(expected.size());
  auto size = static_cast<uLongf>(inflated.size());
  auto read = static_cast<uLong>(stored.size() - (filters.mFletcher32 ? 4 : 0));
  const uLong given = read;
  const int result =
      uncompress2(inflated.data(), &size, reinterpret_cast<const Bytef*>(stored.data()), &read);
  FUZZ_CHECK(result == Z_OK && read == given && size + 1 == expected.size(),
             "zlib answers " + std::to_string(result));
  FUZZ_CHECK(inflated == expected, "zlib reads something else");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t header = 2;
  if (size < header) {
    return 0;
  }
  const ChunkCodec::Filters filters{(data[0] & 1U) != 0, (data[0] & 2U) != 0, (data[0] & 4U) != 0};
  const std::vector<double> values = ValuesFrom(data[1], {data + header, size - header});
  const std::size_t bytes = values.size() * sizeof(double);

  std::vector<std::byte> stored = EncodeChunk(values, filters);
  FUZZ_CHECK(stored.size() <= bytes + bytes / 1000 + 100, std::to_string(stored.size()));
  // What a thread's workspace remembers of earlier chunks must not show.
  FUZZ_CHECK(EncodeChunk(values, filters) == stored, "encoded twice");
  if (filters.mDeflate) {
    CheckWithZlib(values, filters, stored);
  }
  stored.shrink_to_fit();
  std::vector<double> decoded(values.size());
  FUZZ_CHECK(DecodeChunk(stored, filters, decoded) == DecodeStatus::Ok, "what was encoded");
  FUZZ_CHECK(bytes == 0 || std::memcmp(values.data(), decoded.data(), bytes) == 0, "values");

  if (!stored.empty()) {
    const std::span whole(stored);
    FUZZ_CHECK(DecodeChunk(whole.first(stored.size() - 1), filters, decoded) != DecodeStatus::Ok,
               "a byte is missing");
    if (filters.mFletcher32) {
      const std::size_t bit = (data[0] >> 3) * std::size_t{37} % (8 * stored.size());
      stored[bit / 8] ^= std::byte{1} << bit % 8;
      FUZZ_CHECK(DecodeChunk(stored, filters, decoded) == DecodeStatus::WrongChecksum,
                 "bit " + std::to_string(bit));
    }
  }
  return 0;
}
