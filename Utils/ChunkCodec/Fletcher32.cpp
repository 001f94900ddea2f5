#include "Utils/ChunkCodec/Fletcher32.hpp"

#include <algorithm>
#include <cstring>

namespace ChunkCodec {

namespace {

constexpr std::uint64_t Modulus = 65535;

// Words are summed low byte first, which needs no exchange of bytes on the machines that we run
// on. The exchange of the two bytes of a word is a multiplication by 256 modulo 65535, so that of
// all words is one multiplication of the sums.
struct Sums {
  std::uint64_t mWords = 0;
  std::uint64_t mRunning = 0;

  // Appends `count` words that have the given sums of their own.
  void Append(std::uint64_t count, std::uint64_t words, std::uint64_t running) {
    mRunning = (mRunning + count % Modulus * mWords + running) % Modulus;
    mWords = (mWords + words) % Modulus;
  }
  void AppendWord(std::uint64_t word) { Append(1, word, word); }
};

// Words are dealt to lanes that are summed side by side: the compiler makes vectors of them.
constexpr std::size_t Lanes = 16;
constexpr std::size_t MaxRows = 256;  // the running sum of a lane stays below 2^32

// This is not inlined: where it is, GCC 12 leaves the lanes in memory, which takes thrice as long.
[[gnu::noinline]] void AppendRows(const std::byte* bytes, std::size_t rows, Sums& sums) {
  std::uint32_t words[Lanes] = {};
  std::uint32_t running[Lanes] = {};
  for (std::size_t r = 0; r < rows; ++r) {
    std::uint16_t row[Lanes];
    std::memcpy(row, bytes + r * sizeof(row), sizeof(row));
    for (std::size_t lane = 0; lane < Lanes; ++lane) {
      words[lane] += row[lane];
      running[lane] += words[lane];
    }
  }
  // The word of row r in lane l occurs in Lanes * (rows - r) - l running sums.
  std::uint64_t allWords = 0;
  std::uint64_t allRunning = 0;
  for (std::size_t lane = 0; lane < Lanes; ++lane) {
    allWords += words[lane];
    allRunning += Lanes * std::uint64_t{running[lane]} - lane * std::uint64_t{words[lane]};
  }
  sums.Append(Lanes * rows, allWords, allRunning);
}

std::uint32_t HighByteFirst(std::uint64_t sum, bool anyWord) {
  const auto exchanged = static_cast<std::uint32_t>(sum * 256 % Modulus);
  return exchanged == 0 && anyWord ? static_cast<std::uint32_t>(Modulus) : exchanged;
}

}  // namespace

std::uint32_t Fletcher32(std::span<const std::byte> bytes) {
  constexpr std::size_t rowBytes = Lanes * sizeof(std::uint16_t);
  Sums sums;
  std::size_t done = 0;
  while (bytes.size() - done >= rowBytes) {
    const std::size_t rows = std::min((bytes.size() - done) / rowBytes, MaxRows);
    AppendRows(bytes.data() + done, rows, sums);
    done += rows * rowBytes;
  }
  for (; done < bytes.size(); done += 2) {
    const auto high = std::to_integer<std::uint64_t>(bytes[done]);
    const auto low = done + 1 < bytes.size() ? std::to_integer<std::uint64_t>(bytes[done + 1]) : 0;
    sums.AppendWord(low << 8 | high);
  }
  // Sums are 0 only if no word was anything else; the modulus itself stands for 0 otherwise.
  const bool anyWord =
      sums.mWords != 0 || sums.mRunning != 0 ||
      std::any_of(bytes.begin(), bytes.end(), [](std::byte b) { return b != std::byte{0}; });
  return HighByteFirst(sums.mRunning, anyWord) << 16 | HighByteFirst(sums.mWords, anyWord);
}

std::uint32_t Fletcher32OfOldFiles(std::uint32_t checksum) {
  return (checksum & 0x00ff00ffU) << 8 | (checksum & 0xff00ff00U) >> 8;
}

void AppendFletcher32(std::vector<std::byte>& chunk) {
  const std::uint32_t checksum = Fletcher32(chunk);
  for (int shift = 0; shift < 32; shift += 8) {
    chunk.push_back(static_cast<std::byte>(checksum >> shift));
  }
}

}  // namespace ChunkCodec
