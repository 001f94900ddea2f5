#include "Utils/ChunkCodec/PlaneStatistics.hpp"

#include <algorithm>
#include <array>
#include <cstring>

namespace ChunkCodec {

namespace {

std::uint32_t ThreeBytes(const std::uint8_t* bytes) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes, sizeof(word));
  return word & 0xffffff;
}

}  // namespace

bool IsRuns(std::span<const std::uint8_t> bytes) {
  const std::size_t limit = bytes.size() / 16;
  std::size_t changes = 0;
  for (std::size_t first = 1; first < bytes.size(); first += 255) {
    const std::size_t end = std::min(first + 255, bytes.size());
    std::uint8_t changesHere = 0;  // fits, and lets the compiler count 16 bytes at a time
    for (std::size_t i = first; i < end; ++i) {
      changesHere = static_cast<std::uint8_t>(changesHere + (bytes[i] != bytes[i - 1] ? 1 : 0));
    }
    changes += changesHere;
    if (changes > limit) {
      return false;
    }
  }
  return !bytes.empty();
}

double RepeatShare(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t windowBytes = 65536;  // twice the reach, and what 16 bits can number
  constexpr std::size_t lookEvery = 9;        // odd, so that looks meet even and odd distances
  constexpr std::size_t wordBytes = 4;
  constexpr int tableBits = 14;
  std::array<std::uint16_t, 1 << tableBits> lastSeen;
  const auto slot = [&lastSeen](std::uint32_t word) -> std::uint16_t& {
    return lastSeen[word * 2654435761U >> (32 - tableBits)];
  };
  std::size_t looks = 1;
  std::size_t repeats = 0;
  // Every other window is time enough to spend on bytes that are most probably noise.
  for (std::size_t first = 0; first < bytes.size(); first += 2 * windowBytes) {
    const auto window = bytes.subspan(first, std::min(windowBytes, bytes.size() - first));
    lastSeen.fill(0);
    for (std::size_t i = 0; i + 2 * lookEvery + wordBytes <= window.size(); i += 2 * lookEvery) {
      for (const std::size_t look : {i, i + lookEvery}) {
        const std::uint32_t word = ThreeBytes(&window[look]);
        repeats += ThreeBytes(&window[slot(word)]) == word ? 1 : 0;
      }
      looks += 2;
      for (std::size_t k = i; k < i + 2 * lookEvery; k += 2) {
        slot(ThreeBytes(&window[k])) = static_cast<std::uint16_t>(k);
      }
    }
  }
  return static_cast<double>(repeats) / static_cast<double>(looks);
}

}  // namespace ChunkCodec
