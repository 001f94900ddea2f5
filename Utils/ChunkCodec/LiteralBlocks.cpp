#include "Utils/ChunkCodec/LiteralBlocks.hpp"

#include <algorithm>
#include <cstring>

#include "Utils/ChunkCodec/PrefixCode.hpp"

namespace ChunkCodec {

namespace {

// Short blocks follow the drift of slowly varying data, at some 60 bytes for each code.
constexpr std::size_t BlockBytes = 16384;
// Below this share a code is not worth the time that all later readers spend on it.
constexpr double WorthwhileShare = 0.99;
// Four code words and the 7 bits that wait for their byte fill a 64-bit word.
constexpr int MaxCodeLength = 14;
constexpr std::size_t EndOfBlock = 256;

class BitWriter {
 public:
  explicit BitWriter(std::uint8_t* out) : mpOut(out) {}

  /// Adds the low `count` bits of `bits`; the others are zero. Flush at least every 57 bits.
  void Put(std::uint64_t bits, int count) {
    mBits |= bits << mCount;
    mCount += count;
  }
  /// Moves whole bytes out; writes up to eight bytes beyond the end, which later ones overwrite.
  void Flush() {
    for (int byte = 0; byte < 8; ++byte) {  // one store, whatever the byte order
      mpOut[byte] = static_cast<std::uint8_t>(mBits >> 8 * byte);
    }
    mpOut += mCount / 8;
    mBits >>= mCount & ~7;
    mCount &= 7;
  }
  /// Stored blocks of at most 65535 bytes; at least one, even if there are no bytes.
  void Store(std::span<const std::uint8_t> bytes) {
    do {
      const auto part = bytes.first(std::min<std::size_t>(bytes.size(), 65535));
      Put(0, 3);  // not the last block, stored
      mCount = (mCount + 7) & ~7;
      Put(part.size() | (~part.size() & 0xffff) << 16, 32);
      Flush();
      std::copy(part.begin(), part.end(), mpOut);
      mpOut += part.size();
      bytes = bytes.subspan(part.size());
    } while (!bytes.empty());
  }
  std::uint8_t* End() const { return mpOut; }

 private:
  std::uint8_t* mpOut;
  std::uint64_t mBits = 0;
  int mCount = 0;
};

std::array<std::uint32_t, 257> Count(std::span<const std::uint8_t> bytes) {
  // Four tables: equal bytes in a row would wait for one another in a single one.
  std::uint32_t tables[4][256] = {};
  std::size_t i = 0;
  for (; i + 4 <= bytes.size(); i += 4) {
    for (std::size_t t = 0; t < 4; ++t) {
      ++tables[t][bytes[i + t]];
    }
  }
  for (; i < bytes.size(); ++i) {
    ++tables[0][bytes[i]];
  }
  std::array<std::uint32_t, 257> counts{};
  for (std::size_t value = 0; value < 256; ++value) {
    counts[value] = tables[0][value] + tables[1][value] + tables[2][value] + tables[3][value];
  }
  counts[EndOfBlock] = 1;
  return counts;
}

// Whether the bytes are so evenly distributed that no code can be worthwhile. The collision entropy
// log2(n^2 / sum of squares) is a lower bound of the entropy, and takes no logarithms to compare;
// with n random bytes its sum has n more than the 1/256 that even counts have.
bool IsEven(const std::array<std::uint32_t, 257>& counts, std::size_t bytes) {
  std::uint64_t squares = 0;
  for (std::size_t value = 0; value < 256; ++value) {
    squares += std::uint64_t{counts[value]} * counts[value];
  }
  const auto n = static_cast<double>(bytes);
  return static_cast<double>(squares) < n * (n / 256) * 1.06 + n;
}

// The code lengths of a block as they stand in its header: runs in the alphabet of 19 symbols.
struct CodeLengthRuns {
  struct Run {
    std::uint8_t mSymbol;
    std::uint8_t mExtra;  // value of the extra bits
  };
  std::array<Run, 259> mRuns;
  std::size_t mCount = 0;
  std::array<std::uint8_t, 19> mLengths;  // of the code in which the runs are written

  // Two distance codes of one bit follow, as zlib writes them for blocks without matches: not
  // every reader accepts fewer.
  explicit CodeLengthRuns(std::span<const std::uint8_t> lengths) {
    std::array<std::uint8_t, 259> all;
    std::copy(lengths.begin(), lengths.end(), all.begin());
    std::fill(all.begin() + 257, all.end(), std::uint8_t{1});
    for (std::size_t i = 0; i < all.size();) {
      const std::size_t end = static_cast<std::size_t>(
          std::find_if(all.begin() + i, all.end(), [&](auto l) { return l != all[i]; }) -
          all.begin());
      AddRun(all[i], end - i);
      i = end;
    }
    std::array<std::uint32_t, 19> counts{};
    for (std::size_t i = 0; i < mCount; ++i) {
      ++counts[mRuns[i].mSymbol];
    }
    // A single symbol would make an incomplete code, which readers refuse.
    const auto used = 19 - std::count(counts.begin(), counts.end(), 0U);
    if (used < 2) {
      ++counts[counts[0] == 0 ? 0 : 1];
    }
    BuildCodeLengths(counts, 7, mLengths);
  }

  static int ExtraBits(std::size_t symbol) {
    return symbol == 16 ? 2 : symbol == 17 ? 3 : symbol == 18 ? 7 : 0;
  }

 private:
  void Add(std::size_t symbol, std::size_t extra = 0) {
    mRuns[mCount++] = {static_cast<std::uint8_t>(symbol), static_cast<std::uint8_t>(extra)};
  }
  void AddRun(std::size_t length, std::size_t count) {
    if (length != 0) {
      Add(length);
      --count;
    }
    while (count >= 3) {
      const std::size_t taken = std::min<std::size_t>(count, length != 0 ? 6 : 138);
      if (length != 0) {
        Add(16, taken - 3);
      } else if (taken <= 10) {
        Add(17, taken - 3);
      } else {
        Add(18, taken - 11);
      }
      count -= taken;
    }
    for (; count > 0; --count) {
      Add(length);
    }
  }
};

constexpr std::size_t CodeLengthOrder[19] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                             11, 4,  12, 3, 13, 2, 14, 1, 15};

std::size_t CountCodeLengths(const CodeLengthRuns& runs) {
  std::size_t count = 19;
  while (count > 4 && runs.mLengths[CodeLengthOrder[count - 1]] == 0) {
    --count;
  }
  return count;
}

std::size_t HeaderBits(const CodeLengthRuns& runs) {
  std::size_t bits = 3 + 5 + 5 + 4 + 3 * CountCodeLengths(runs);
  for (std::size_t i = 0; i < runs.mCount; ++i) {
    const std::size_t symbol = runs.mRuns[i].mSymbol;
    bits += runs.mLengths[symbol] + static_cast<std::size_t>(CodeLengthRuns::ExtraBits(symbol));
  }
  return bits;
}

void WriteHeader(const CodeLengthRuns& runs, BitWriter& writer) {
  const std::size_t count = CountCodeLengths(runs);
  writer.Put(2 << 1, 3);  // not the last block, a code of its own
  writer.Put(0, 5);       // 257 literal codes
  writer.Put(1, 5);       // 2 distance codes
  writer.Put(count - 4, 4);
  writer.Flush();
  for (std::size_t i = 0; i < count; ++i) {
    writer.Put(runs.mLengths[CodeLengthOrder[i]], 3);
    writer.Flush();
  }
  std::array<std::uint16_t, 19> words;
  BuildCodeWords(runs.mLengths, words);
  for (std::size_t i = 0; i < runs.mCount; ++i) {
    const auto [symbol, extra] = runs.mRuns[i];
    writer.Put(words[symbol], runs.mLengths[symbol]);
    writer.Put(extra, CodeLengthRuns::ExtraBits(symbol));
    writer.Flush();
  }
}

void WriteCoded(std::span<const std::uint8_t> bytes, std::span<const std::uint8_t> lengths,
                BitWriter& writer) {
  WriteHeader(CodeLengthRuns(lengths), writer);
  std::array<std::uint16_t, 257> words;
  BuildCodeWords(lengths, words);
  struct Code {
    std::uint32_t mWord;
    std::int32_t mLength;
  };
  std::array<Code, 257> codes;
  for (std::size_t symbol = 0; symbol < codes.size(); ++symbol) {
    codes[symbol] = {words[symbol], lengths[symbol]};
  }
  std::size_t i = 0;
  for (; i + 4 <= bytes.size(); i += 4) {
    for (std::size_t k = 0; k < 4; ++k) {
      const Code code = codes[bytes[i + k]];
      writer.Put(code.mWord, code.mLength);
    }
    writer.Flush();
  }
  for (; i < bytes.size(); ++i) {
    writer.Put(codes[bytes[i]].mWord, codes[bytes[i]].mLength);
    writer.Flush();
  }
  writer.Put(codes[EndOfBlock].mWord, codes[EndOfBlock].mLength);
  writer.Flush();
}

}  // namespace

// The size in bytes when coded, with the code in `block`; the size when stored if no code is
// worthwhile.
std::size_t LiteralBlocks::PlanCode(Block& block) {
  const std::size_t stored = block.mBytes.size();
  const auto counts = Count(block.mBytes);
  if (IsEven(counts, stored)) {
    return stored;
  }
  BuildCodeLengths(counts, MaxCodeLength, block.mLengths);
  std::size_t bits = HeaderBits(CodeLengthRuns(block.mLengths));
  for (std::size_t symbol = 0; symbol < Symbols; ++symbol) {
    bits += std::size_t{counts[symbol]} * block.mLengths[symbol];
  }
  const std::size_t coded = bits / 8 + 1;
  block.mIsCoded = static_cast<double>(coded) < WorthwhileShare * static_cast<double>(stored);
  return block.mIsCoded ? coded : stored;
}

LiteralBlocks::LiteralBlocks(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t storedHeader = 5;
  for (std::size_t first = 0; first < bytes.size(); first += BlockBytes) {
    Block block;
    block.mBytes = bytes.subspan(first, std::min(BlockBytes, bytes.size() - first));
    mSize += PlanCode(block);
    if (!block.mIsCoded && !mBlocks.empty() && !mBlocks.back().mIsCoded) {
      auto& previous = mBlocks.back().mBytes;
      previous = {previous.data(), previous.size() + block.mBytes.size()};
    } else {
      mBlocks.push_back(block);
    }
  }
  for (const Block& block : mBlocks) {
    mSize += block.mIsCoded ? 0 : storedHeader * ((block.mBytes.size() + 65534) / 65535);
  }
  mSize += !mBlocks.empty() && mBlocks.back().mIsCoded ? storedHeader : 0;
}

std::uint8_t* LiteralBlocks::Write(std::uint8_t* out) const {
  BitWriter writer(out);
  for (const Block& block : mBlocks) {
    if (block.mIsCoded) {
      WriteCoded(block.mBytes, block.mLengths, writer);
    } else {
      writer.Store(block.mBytes);
    }
  }
  if (!mBlocks.empty() && mBlocks.back().mIsCoded) {
    writer.Store({});
  }
  return writer.End();
}

}  // namespace ChunkCodec
