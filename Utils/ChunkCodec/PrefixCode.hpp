// Prefix codes as deflate uses them (RFC 1951, section 3.2.2).
#pragma once

#include <cstdint>
#include <span>

namespace ChunkCodec {

/// The lengths of a complete prefix code for symbols that occur as often as counted, nearly the
/// shortest that has no code above maxLength; 0 for a symbol that does not occur. At least two
/// symbols must occur, at most 2^maxLength and 288, and none as often as 2^22 times.
void BuildCodeLengths(std::span<const std::uint32_t> counts, int maxLength,
                      std::span<std::uint8_t> lengths);

/// The code words of a code given by its lengths (at most 15), with the bits in the order in which
/// a stream has them: the first one lowest.
void BuildCodeWords(std::span<const std::uint8_t> lengths, std::span<std::uint16_t> words);

}  // namespace ChunkCodec
