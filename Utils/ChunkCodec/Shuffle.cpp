#include "Utils/ChunkCodec/Shuffle.hpp"

#include <algorithm>

namespace ChunkCodec {

namespace {

// The loops below are shaped for the vectoriser: compilers turn a split into two and a gather of
// eight into byte interleaves, but a scatter to eight, or a stride of eight, into single bytes.
void Split(const std::uint8_t* in, std::size_t pairs, std::uint8_t* __restrict even,
           std::uint8_t* __restrict odd) {
  for (std::size_t i = 0; i < pairs; ++i) {
    even[i] = in[2 * i];
    odd[i] = in[2 * i + 1];
  }
}

template <std::size_t Bytes>
void UnshuffleElements(const std::byte* planes, std::size_t stride, std::size_t count,
                       std::byte* __restrict out) {
  for (std::size_t i = 0; i < count; ++i) {
#pragma GCC unroll 8  // or GCC makes no vectors of it below -O3
    for (std::size_t k = 0; k < Bytes; ++k) {
      out[Bytes * i + k] = planes[k * stride + i];
    }
  }
}

}  // namespace

void Shuffle(std::span<const double> values, std::uint8_t* planes, std::size_t stride) {
  constexpr std::size_t block = 512;  // values; two copies of them stay in the first-level cache
  std::uint8_t halves[8 * block];     // bytes 0246 | 1357 of every value
  std::uint8_t quarters[8 * block];   // bytes 04 | 26 | 15 | 37
  const auto* in = reinterpret_cast<const std::uint8_t*>(values.data());
  for (std::size_t first = 0; first < values.size(); first += block) {
    const std::size_t n = std::min(block, values.size() - first);
    Split(in + 8 * first, 4 * n, halves, halves + 4 * block);
    Split(halves, 2 * n, quarters, quarters + 2 * block);
    Split(halves + 4 * block, 2 * n, quarters + 4 * block, quarters + 6 * block);
    for (std::size_t quarter = 0; quarter < 4; ++quarter) {
      const std::size_t plane = quarter / 2 + quarter % 2 * 2;
      std::uint8_t* out = planes + plane * stride + first;
      Split(quarters + quarter * 2 * block, n, out, out + 4 * stride);
    }
  }
}

void Unshuffle(const std::byte* planes, std::size_t stride, std::size_t elementBytes,
               std::span<std::byte> elements) {
  const std::size_t count = elements.size() / elementBytes;
  switch (elementBytes) {
    case 2:
      return UnshuffleElements<2>(planes, stride, count, elements.data());
    case 4:
      return UnshuffleElements<4>(planes, stride, count, elements.data());
    case 8:
      return UnshuffleElements<8>(planes, stride, count, elements.data());
    default:
      for (std::size_t k = 0; k < elementBytes; ++k) {
        for (std::size_t i = 0; i < count; ++i) {
          elements[i * elementBytes + k] = planes[k * stride + i];
        }
      }
  }
}

}  // namespace ChunkCodec
