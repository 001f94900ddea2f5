// The byte transposition of HDF5's shuffle filter, for elements of eight bytes: plane p, of one
// byte per value, holds byte p of every value, and the planes follow one another. Bytes of equal
// weight then lie together, where exponents compress and mantissa noise is known as such.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#pragma GCC visibility push(default)

namespace ChunkCodec {

inline constexpr std::size_t PlaneCount = sizeof(double);

/// Writes byte p of values[i] to planes[p * stride + i]. The filter's own layout has a stride of
/// values.size(); nothing is written between the planes of a larger one.
void Shuffle(std::span<const double> values, std::uint8_t* planes, std::size_t stride);

/// The inverse for elements of any size: byte p of the i-th element from planes[p * stride + i],
/// for as many whole elements as there is room for. In the filter's own layout the stride is the
/// number of all elements, of which these may be some.
void Unshuffle(const std::byte* planes, std::size_t stride, std::size_t elementBytes,
               std::span<std::byte> elements);

}  // namespace ChunkCodec

#pragma GCC visibility pop
