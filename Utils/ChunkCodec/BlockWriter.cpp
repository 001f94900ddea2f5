#include "Utils/ChunkCodec/BlockWriter.hpp"

#include <algorithm>
#include <bit>
#include <numeric>
#include <utility>

#include "Utils/ChunkCodec/CodeHeader.hpp"
#include "Utils/ChunkCodec/PrefixCode.hpp"

namespace ChunkCodec {

namespace {

// Below this share of the bytes stored, and of the bytes coded, a code and matches are worth the
// time that all later readers spend on them.
constexpr double WorthwhileShare = 0.99;
// Blocks of which matches cover less than one part in so many are taken to have none.
constexpr std::size_t FewMatches = 64;
// Blocks of at least so many symbols are not joined with others: a code costs some 60 bytes.
constexpr std::size_t JoinedSymbols = 4096;
// Above, the fixed code is not tried.
constexpr std::size_t FixedCodeSymbols = 512;
// Four code words and the 7 bits that wait for their byte fill a 64-bit word.
constexpr int MaxLiteralLength = 14;
constexpr int MaxDistanceLength = 15;
constexpr std::size_t StoredHeaderBytes = 5;

// A length or distance as deflate writes it: a symbol and some extra bits.
struct SplitNumber {
  std::size_t mSymbol;
  std::uint32_t mExtra;
  int mExtraBits;
};

// Both alphabets number powers of two, cut in parts of equal length: in four, and in two.
template <int Parts>
SplitNumber Split(std::uint32_t number) {
  constexpr int partBits = Parts == 4 ? 2 : 1;
  if (number < 2 * Parts) {
    return {number, 0, 0};
  }
  const int extraBits = static_cast<int>(std::bit_width(number)) - 1 - partBits;
  const std::uint32_t symbol =
      (static_cast<std::uint32_t>(extraBits) << partBits) + (number >> extraBits);
  return {symbol, number & ((1U << extraBits) - 1), extraBits};
}

SplitNumber SplitLength(std::uint32_t length) {
  constexpr std::uint32_t longest = 258;  // has a symbol of its own
  SplitNumber split = length == longest ? SplitNumber{28, 0, 0} : Split<4>(length - 3);
  split.mSymbol += 257;
  return split;
}

SplitNumber SplitDistance(std::uint32_t distance) {
  return Split<2>(distance - 1);
}

// The words of a code beside their lengths.
template <std::size_t Size>
class CodeTable {
 public:
  explicit CodeTable(const std::array<std::uint8_t, Size>& lengths) {
    std::array<std::uint16_t, Size> words;
    BuildCodeWords(lengths, words);
    for (std::size_t symbol = 0; symbol < Size; ++symbol) {
      mEntries[symbol] = {words[symbol], lengths[symbol]};
    }
  }
  void Put(std::size_t symbol, BitWriter& writer) const {
    const Entry entry = mEntries[symbol];
    writer.Put(entry.mWord, entry.mLength);
  }

 private:
  struct Entry {
    std::uint32_t mWord;
    std::int32_t mLength;
  };
  std::array<Entry, Size> mEntries;
};

template <std::size_t Size>
std::size_t SumOfBits(const std::array<std::uint32_t, Size>& counts,
                      const std::array<std::uint8_t, Size>& lengths) {
  return std::inner_product(counts.begin(), counts.end(), lengths.begin(), std::size_t{0});
}

constexpr std::array<std::uint8_t, 288> FixedLiteralLengths = [] {
  std::array<std::uint8_t, 288> lengths{};
  for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol) {
    lengths[symbol] = symbol < 144 ? 8 : symbol < 256 ? 9 : symbol < 280 ? 7 : 8;
  }
  return lengths;
}();
constexpr std::array<std::uint8_t, 30> FixedDistanceLengths = [] {
  std::array<std::uint8_t, 30> lengths{};
  lengths.fill(5);
  return lengths;
}();

}  // namespace

void BlockWriter::CountBytes(std::span<const std::uint8_t> bytes, Counts& counts) {
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
  for (std::size_t value = 0; value < 256; ++value) {
    counts.mLiterals[value] +=
        tables[0][value] + tables[1][value] + tables[2][value] + tables[3][value];
  }
}

void BlockWriter::CountSymbols(std::span<const Sequence> sequences, Block& block) {
  constexpr std::size_t longRun = 1024;
  Counts& counts = block.mCounts;
  const std::uint8_t* p = block.mBytes.data();
  for (const auto& [literals, length, distance] : sequences) {
    if (literals >= longRun) {
      CountBytes({p, literals}, counts);
    } else {
      for (std::size_t i = 0; i < literals; ++i) {
        ++counts.mLiterals[p[i]];
      }
    }
    p += literals + length;
    block.mSymbols += literals;
    if (length != 0) {
      const SplitNumber splitLength = SplitLength(length);
      const SplitNumber splitDistance = SplitDistance(distance);
      ++counts.mLiterals[splitLength.mSymbol];
      ++counts.mDistances[splitDistance.mSymbol];
      counts.mExtraBits +=
          static_cast<std::size_t>(splitLength.mExtraBits + splitDistance.mExtraBits);
      block.mMatchedBytes += length;
      ++block.mSymbols;
    }
  }
  counts.mLiterals[EndOfBlock] = 1;
}

// Whether the bytes are so evenly distributed that no code can be worthwhile. The collision entropy
// log2(n^2 / sum of squares) is a lower bound of the entropy, and takes no logarithms to compare;
// with n random bytes its sum has n more than the 1/256 that even counts have.
bool BlockWriter::IsEven(const Counts& counts, std::size_t bytes) {
  std::uint64_t squares = 0;
  for (std::size_t value = 0; value < 256; ++value) {
    squares += std::uint64_t{counts.mLiterals[value]} * counts.mLiterals[value];
  }
  const auto n = static_cast<double>(bytes);
  return static_cast<double>(squares) < n * (n / 256) * 1.06 + n;
}

// Returns the size of the block with its header, in bits.
std::size_t BlockWriter::MakeCode(const Counts& counts, Code& code) {
  BuildCodeLengths(counts.mLiterals, MaxLiteralLength, code.mLiterals);
  // Two distances at least, as zlib writes them too: not every reader accepts fewer.
  std::array<std::uint32_t, DistanceSymbols> distances = counts.mDistances;
  for (std::size_t symbol = 0;
       DistanceSymbols - std::count(distances.begin(), distances.end(), 0U) < 2; ++symbol) {
    distances[symbol] = std::max(distances[symbol], 1U);
  }
  BuildCodeLengths(distances, MaxDistanceLength, code.mDistances);
  return CodeHeader(code.mLiterals, code.mDistances).Bits() +
         SumOfBits(counts.mLiterals, code.mLiterals) +
         SumOfBits(counts.mDistances, code.mDistances) + counts.mExtraBits;
}

std::size_t BlockWriter::BitsInFixedCode(const Counts& counts) {
  return 3 + SumOfBits(counts.mLiterals, FixedLiteralLengths) +
         SumOfBits(counts.mDistances, FixedDistanceLengths) + counts.mExtraBits;
}

void BlockWriter::Decide(Block& block) {
  const std::size_t bytes = block.mBytes.size();
  const auto consider = [&block](Kind kind, std::size_t bits, double share, const Code& code) {
    if (static_cast<double>(bits) < share * static_cast<double>(block.mBits)) {
      block.mKind = kind;
      block.mBits = bits;
      block.mCode = code;
    }
  };
  block.mKind = Kind::Stored;
  block.mBits = 8 * (bytes + StoredHeaderBytes);
  const bool hasMatches = block.mMatchedBytes > bytes / FewMatches;
  Code matched;
  std::size_t matchedBits = 0;
  if (hasMatches) {
    matchedBits = MakeCode(block.mCounts, matched);
  }
  // No code has less than a bit for a byte.
  if (!hasMatches || matchedBits > bytes) {
    Counts counts;
    if (block.mMatchedBytes == 0) {
      counts.mLiterals = block.mCounts.mLiterals;
    } else {
      CountBytes(block.mBytes, counts);
      counts.mLiterals[EndOfBlock] = 1;
    }
    if (!IsEven(counts, bytes)) {
      Code code;
      const std::size_t bits = MakeCode(counts, code);
      consider(Kind::Coded, bits, WorthwhileShare, code);
    }
  }
  if (hasMatches) {
    consider(Kind::Matched, matchedBits, WorthwhileShare, matched);
  }
  if (block.mSymbols <= FixedCodeSymbols) {
    consider(Kind::MatchedInFixedCode, BitsInFixedCode(block.mCounts), 1.0,
             {FixedLiteralLengths, FixedDistanceLengths});
  }
}

void BlockWriter::Start(std::uint8_t* out) {
  mWriter = BitWriter(out);
  mSequences.clear();
}

void BlockWriter::Add(std::span<const std::uint8_t> bytes) {
  mNext = {};
  mNext.mBytes = bytes;
  mNext.mSequences = mSequences.size() - mWaiting.mSequences;
  CountSymbols(std::span(mSequences).last(mNext.mSequences), mNext);
  Decide(mNext);
  if (!JoinWithWaiting()) {
    WriteWaiting();
    std::swap(mWaiting, mNext);
  }
}

bool BlockWriter::JoinWithWaiting() {
  if (mWaiting.mBytes.empty() || mWaiting.mSymbols >= JoinedSymbols ||
      mNext.mSymbols >= JoinedSymbols ||
      mWaiting.mBytes.data() + mWaiting.mBytes.size() != mNext.mBytes.data()) {
    return false;
  }
  Block joined = mWaiting;
  joined.mBytes = {mWaiting.mBytes.data(), mWaiting.mBytes.size() + mNext.mBytes.size()};
  joined.mSequences += mNext.mSequences;
  joined.mMatchedBytes += mNext.mMatchedBytes;
  joined.mSymbols += mNext.mSymbols;
  const auto add = [](auto& sums, const auto& counts) {
    std::transform(sums.begin(), sums.end(), counts.begin(), sums.begin(), std::plus<>());
  };
  add(joined.mCounts.mLiterals, mNext.mCounts.mLiterals);
  add(joined.mCounts.mDistances, mNext.mCounts.mDistances);
  joined.mCounts.mExtraBits += mNext.mCounts.mExtraBits;
  joined.mCounts.mLiterals[EndOfBlock] = 1;
  Decide(joined);
  if (joined.mBits > mWaiting.mBits + mNext.mBits) {
    return false;
  }
  mWaiting = joined;
  return true;
}

void BlockWriter::WriteStored() {
  if (!mStored.empty()) {
    mWriter.Store(mStored);
    mStored = {};
  }
}

void BlockWriter::WriteWaiting() {
  const Block& block = mWaiting;
  const auto sequences = std::span(mSequences).first(block.mSequences);
  if (block.mKind == Kind::Stored) {
    if (mStored.data() + mStored.size() != block.mBytes.data()) {
      WriteStored();
      mStored = block.mBytes;
    } else {
      mStored = {mStored.data(), mStored.size() + block.mBytes.size()};
    }
  } else {
    WriteStored();
    if (block.mKind == Kind::MatchedInFixedCode) {
      mWriter.Put(1 << 1, 3);  // not the last block
    } else {
      CodeHeader(block.mCode.mLiterals, block.mCode.mDistances).Write(mWriter);
    }
    const Sequence all{static_cast<std::uint32_t>(block.mBytes.size()), 0, 0};
    WriteSymbols(block.mBytes, block.mKind == Kind::Coded ? std::span(&all, 1) : sequences,
                 block.mCode);
  }
  mSequences.erase(mSequences.begin(),
                   mSequences.begin() + static_cast<std::ptrdiff_t>(block.mSequences));
  mWaiting = {};
}

void BlockWriter::WriteSymbols(std::span<const std::uint8_t> bytes,
                               std::span<const Sequence> sequences, const Code& code) {
  const CodeTable literalCode(code.mLiterals);
  const CodeTable distanceCode(code.mDistances);
  BitWriter writer = mWriter;  // a local one can stay in registers
  const std::uint8_t* p = bytes.data();
  for (const auto& [literals, length, distance] : sequences) {
    const std::uint8_t* const end = p + literals;
    for (; p + 4 <= end; p += 4) {
      for (std::size_t k = 0; k < 4; ++k) {
        literalCode.Put(p[k], writer);
      }
      writer.Flush();
    }
    for (; p < end; ++p) {
      literalCode.Put(*p, writer);
      writer.Flush();
    }
    if (length != 0) {
      const SplitNumber splitLength = SplitLength(length);
      const SplitNumber splitDistance = SplitDistance(distance);
      literalCode.Put(splitLength.mSymbol, writer);
      writer.Put(splitLength.mExtra, splitLength.mExtraBits);
      distanceCode.Put(splitDistance.mSymbol, writer);
      writer.Put(splitDistance.mExtra, splitDistance.mExtraBits);
      writer.Flush();
      p += length;
    }
  }
  literalCode.Put(EndOfBlock, writer);
  writer.Flush();
  mWriter = writer;
}

std::uint8_t* BlockWriter::Finish() {
  WriteWaiting();
  WriteStored();
  if (!mWriter.IsAtByte()) {
    mWriter.Store({});
  }
  return mWriter.End();
}

}  // namespace ChunkCodec
