#include "Utils/ChunkCodec/PrefixCode.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

namespace ChunkCodec {

namespace {

constexpr std::size_t MaxSymbols = 288;
constexpr std::size_t MaxDepth = 32;  // 2^22 occurrences of 288 symbols reach no deeper
using LengthCounts = std::array<std::uint32_t, MaxDepth + 1>;

// How many codes of each length a Huffman code has. `sorted` has ascending counts. Inner nodes come
// to be in ascending order too, so that two queues do what otherwise needs a heap.
LengthCounts HuffmanLengths(std::span<const std::uint32_t> sorted) {
  const std::size_t leaves = sorted.size();
  std::array<std::uint32_t, 2 * MaxSymbols> weight;
  std::array<std::uint16_t, 2 * MaxSymbols> parent;
  std::copy(sorted.begin(), sorted.end(), weight.begin());
  std::size_t nextLeaf = 0;
  std::size_t nextInner = leaves;
  const std::size_t root = 2 * leaves - 2;
  for (std::size_t node = leaves; node <= root; ++node) {
    weight[node] = 0;
    for (int child = 0; child < 2; ++child) {
      const bool takeLeaf =
          nextLeaf < leaves && (nextInner == node || weight[nextLeaf] <= weight[nextInner]);
      const std::size_t taken = takeLeaf ? nextLeaf++ : nextInner++;
      weight[node] += weight[taken];
      parent[taken] = static_cast<std::uint16_t>(node);
    }
  }
  std::array<std::uint8_t, 2 * MaxSymbols> depth;
  depth[root] = 0;
  LengthCounts lengths{};
  for (std::size_t node = root; node-- > 0;) {
    depth[node] = static_cast<std::uint8_t>(depth[parent[node]] + 1);
    if (node < leaves) {
      ++lengths[std::min<std::size_t>(depth[node], MaxDepth)];
    }
  }
  return lengths;
}

// Shortens what is above maxLength and pays for it by lengthening shorter codes, so that the code
// is complete again. Each length stands for its share of the 2^maxLength leaves of a full tree.
void LimitLengths(LengthCounts& lengths, std::size_t maxLength) {
  for (std::size_t length = maxLength + 1; length <= MaxDepth; ++length) {
    lengths[maxLength] += lengths[length];
    lengths[length] = 0;
  }
  std::uint64_t used = 0;
  for (std::size_t length = 1; length <= maxLength; ++length) {
    used += std::uint64_t{lengths[length]} << (maxLength - length);
  }
  const std::uint64_t available = std::uint64_t{1} << maxLength;
  while (used > available) {
    std::size_t longest = maxLength - 1;
    while (lengths[longest] == 0) {
      --longest;
    }
    --lengths[longest];
    ++lengths[longest + 1];
    used -= std::uint64_t{1} << (maxLength - longest - 1);
  }
  for (; used < available; ++used) {
    --lengths[maxLength];
    ++lengths[maxLength - 1];
  }
}

}  // namespace

void BuildCodeLengths(std::span<const std::uint32_t> counts, int maxLength,
                      std::span<std::uint8_t> lengths) {
  // Count and symbol in one number: ties are broken by the symbol.
  std::array<std::uint32_t, MaxSymbols> order;
  std::size_t used = 0;
  for (std::size_t symbol = 0; symbol < counts.size(); ++symbol) {
    lengths[symbol] = 0;
    if (counts[symbol] != 0) {
      order[used++] = counts[symbol] << 9 | static_cast<std::uint32_t>(symbol);
    }
  }
  std::sort(order.begin(), order.begin() + used);
  std::array<std::uint32_t, MaxSymbols> sorted;
  std::transform(order.begin(), order.begin() + used, sorted.begin(),
                 [](std::uint32_t entry) { return entry >> 9; });
  LengthCounts ofLength = HuffmanLengths(std::span(sorted).first(used));
  LimitLengths(ofLength, static_cast<std::size_t>(maxLength));
  std::size_t next = 0;
  for (auto length = static_cast<std::size_t>(maxLength); length > 0; --length) {
    for (; ofLength[length] > 0; --ofLength[length]) {
      lengths[order[next++] & 0x1ff] = static_cast<std::uint8_t>(length);
    }
  }
}

void BuildCodeWords(std::span<const std::uint8_t> lengths, std::span<std::uint16_t> words) {
  std::array<std::uint32_t, 17> next{};
  for (const std::uint8_t length : lengths) {
    ++next[length + 1U];
  }
  next[1] = 0;  // symbols without a code
  std::uint32_t code = 0;
  for (std::size_t length = 1; length <= 15; ++length) {
    code = (code + next[length]) << 1;
    next[length] = code;
  }
  for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol) {
    std::uint32_t reversed = 0;
    if (lengths[symbol] != 0) {
      std::uint32_t word = next[lengths[symbol]]++;
      for (int bit = 0; bit < lengths[symbol]; ++bit, word >>= 1) {
        reversed = reversed << 1 | (word & 1);
      }
    }
    words[symbol] = static_cast<std::uint16_t>(reversed);
  }
}

}  // namespace ChunkCodec
