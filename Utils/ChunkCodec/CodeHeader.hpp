// The header of a deflate block with codes of its own (RFC 1951, section 3.2.7).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "Utils/ChunkCodec/BitWriter.hpp"

namespace ChunkCodec {

/// The whole header, with the three bits that begin the block. It has the lengths of code words as
/// runs in an alphabet of 19 symbols, which has a code of its own.
class CodeHeader {
 public:
  /// From the lengths of the code words of 257 to 288 literals and lengths, and 2 to 30 distances.
  CodeHeader(std::span<const std::uint8_t> literals, std::span<const std::uint8_t> distances);

  std::size_t Bits() const;
  void Write(BitWriter& writer) const;

 private:
  static constexpr std::size_t Symbols = 19;
  static constexpr std::size_t MostLengths = 318;
  struct Run {
    std::uint8_t mSymbol;
    std::uint8_t mExtra;  // value of the extra bits
  };

  static int ExtraBits(std::size_t symbol);
  void Add(std::size_t symbol, std::size_t extra = 0);
  void AddRun(std::size_t length, std::size_t count);

  std::size_t mLiterals;  // that are written
  std::size_t mDistances;
  std::array<Run, MostLengths> mRuns;
  std::size_t mCount = 0;
  std::array<std::uint8_t, Symbols> mLengths;  // of the code in which the runs are written
  std::size_t mLengthCount = Symbols;          // of those, as many as are written
};

}  // namespace ChunkCodec
