// The input is a byte of flags, a byte that says how to repeat, and the bytes of the first values.
// The flags are bits: 1 shuffle, 2 deflate, 4 Fletcher-32. The chunk is the values 2^(low three
// bits) times, each repetition with other bits in as many low bytes as the next three bits say: so
// a short input makes long chunks of repeats, noise and what is between.
#include <algorithm>
#include <bit>

#include "Tests/Fuzz/ChunkFuzz.hpp"

namespace {

Fuzz::Values ValuesFrom(unsigned char repeat, std::string_view bytes) {
  constexpr std::size_t mostValues = 4096;
  std::vector<std::uint64_t> tile((bytes.size() + 7) / 8);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    tile[i / 8] |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << 8 * (i % 8);
  }
  const std::size_t count = std::min(tile.size() << (repeat & 7U), mostValues);
  const unsigned noisyBytes = repeat >> 3 & 7U;
  const std::uint64_t noisyBits = (std::uint64_t{1} << 8 * noisyBytes) - 1;
  Fuzz::Values values(count);
  std::uint64_t noise = 0;
  for (std::size_t i = 0; i < count; ++i) {
    values[i] = std::bit_cast<double>(tile[i % tile.size()] ^ (noise >> 7 & noisyBits));
    noise = noise * 6364136223846793005U + (i < tile.size() ? 0 : 1442695040888963407U);
  }
  return values;
}

}  // namespace

void Fuzz::Target(std::string_view input) {
  constexpr std::size_t header = 2;
  if (input.size() < header) {
    return;
  }
  const Flags flags(input[0]);
  const Values values = ValuesFrom(input[1], input.substr(header));
  const std::size_t bytes = values.size() * sizeof(double);

  std::vector<std::byte> stored = CheckedEncoding(values, flags);
  FUZZ_CHECK(stored.size() <= bytes + bytes / 1000 + 100, std::to_string(stored.size()));
  // What a thread's workspace remembers of earlier chunks must not show.
  FUZZ_CHECK(EncodeChunk(values, flags.Filters()) == stored, "encoded twice");
  Values decoded(values.size());
  if (flags.mDeflate) {
    std::size_t used = 0;
    FUZZ_CHECK(InflatesWithZlib(stored, flags.mShuffle, decoded, used), "zlib does not");
    FUZZ_CHECK(used == stored.size() - (flags.mFletcher32 ? 4 : 0), std::to_string(used));
    FUZZ_CHECK(AreSameBits(decoded, values), "zlib reads something else");
  }
  if (stored.empty()) {
    return;
  }
  const auto decode = [&](std::size_t size) {
    return DecodeChunk(std::span(stored).first(size), flags.Filters(), decoded);
  };
  FUZZ_CHECK(decode(stored.size() - 1) != ChunkCodec::DecodeStatus::Ok, "a byte is missing");
  if (flags.mFletcher32) {
    const std::size_t bit = (input[0] >> 3 & 31) * std::size_t{37} % (8 * stored.size());
    stored[bit / 8] ^= std::byte{1} << bit % 8;
    FUZZ_CHECK(decode(stored.size()) == ChunkCodec::DecodeStatus::WrongChecksum,
               "bit " + std::to_string(bit));
  }
}
