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

void Unshuffle(const std::uint8_t* planes, std::size_t stride, std::span<double> values) {
  const std::size_t n = values.size();
  const std::uint8_t* p1 = planes + stride;
  const std::uint8_t* p2 = planes + 2 * stride;
  const std::uint8_t* p3 = planes + 3 * stride;
  const std::uint8_t* p4 = planes + 4 * stride;
  const std::uint8_t* p5 = planes + 5 * stride;
  const std::uint8_t* p6 = planes + 6 * stride;
  const std::uint8_t* p7 = planes + 7 * stride;
  auto* __restrict out = reinterpret_cast<std::uint8_t*>(values.data());
  for (std::size_t i = 0; i < n; ++i) {
    out[8 * i] = planes[i];
    out[8 * i + 1] = p1[i];
    out[8 * i + 2] = p2[i];
    out[8 * i + 3] = p3[i];
    out[8 * i + 4] = p4[i];
    out[8 * i + 5] = p5[i];
    out[8 * i + 6] = p6[i];
    out[8 * i + 7] = p7[i];
  }
}

}  // namespace ChunkCodec
