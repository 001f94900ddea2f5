// The checksum of HDF5's Fletcher-32 filter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace ChunkCodec {

/// The checksum over any number of bytes. As HDF5 defines it: the bytes are 16-bit words, high byte
/// first on every machine, an odd last byte being the high byte of a last word; both sums start at
/// 0 and are taken modulo 65535, a sum that is a positive multiple of it counting as 65535; the
/// result has the sum of the words in its low half and the sum of their running sums in its high
/// half. The filter appends it to the chunk as four bytes, low byte first.
std::uint32_t Fletcher32(std::span<const std::byte> bytes);

/// What HDF5 before 1.6.3 stored for the same bytes on little-endian machines: the two bytes of
/// each half exchanged. Readers accept either, as HDF5 does.
std::uint32_t Fletcher32OfOldFiles(std::uint32_t checksum);

/// Appends the checksum of the chunk, as the filter does.
void AppendFletcher32(std::vector<std::byte>& chunk);

}  // namespace ChunkCodec
