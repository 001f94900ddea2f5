#include "Utils/ChunkCodec/CodeHeader.hpp"

#include <algorithm>

#include "Utils/ChunkCodec/PrefixCode.hpp"

namespace ChunkCodec {

namespace {

// In which the lengths of the code for the runs are written.
constexpr std::size_t Order[] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

// How many of the lengths are written: all up to the last that is used.
std::size_t Used(std::span<const std::uint8_t> lengths, std::size_t atLeast) {
  std::size_t used = lengths.size();
  while (used > atLeast && lengths[used - 1] == 0) {
    --used;
  }
  return used;
}

}  // namespace

CodeHeader::CodeHeader(std::span<const std::uint8_t> literals,
                       std::span<const std::uint8_t> distances)
    : mLiterals(Used(literals, 257)), mDistances(Used(distances, 2)) {
  // A run may go on from the literals to the distances.
  std::array<std::uint8_t, MostLengths> all;
  std::copy_n(distances.begin(), mDistances, std::copy_n(literals.begin(), mLiterals, all.begin()));
  const std::size_t lengths = mLiterals + mDistances;
  for (std::size_t i = 0, end = 0; i < lengths; i = end) {
    while (end < lengths && all[end] == all[i]) {
      ++end;
    }
    AddRun(all[i], end - i);
  }
  std::array<std::uint32_t, Symbols> counts{};
  for (std::size_t i = 0; i < mCount; ++i) {
    ++counts[mRuns[i].mSymbol];
  }
  // A single symbol would make an incomplete code, which readers refuse.
  if (Symbols - std::count(counts.begin(), counts.end(), 0U) < 2) {
    ++counts[counts[0] == 0 ? 0 : 1];
  }
  BuildCodeLengths(counts, 7, mLengths);
  while (mLengthCount > 4 && mLengths[Order[mLengthCount - 1]] == 0) {
    --mLengthCount;
  }
}

std::size_t CodeHeader::Bits() const {
  std::size_t bits = 3 + 5 + 5 + 4 + 3 * mLengthCount;
  for (std::size_t i = 0; i < mCount; ++i) {
    bits += mLengths[mRuns[i].mSymbol] + static_cast<std::size_t>(ExtraBits(mRuns[i].mSymbol));
  }
  return bits;
}

void CodeHeader::Write(BitWriter& writer) const {
  writer.Put(2 << 1, 3);  // not the last block, codes of its own
  writer.Put(mLiterals - 257, 5);
  writer.Put(mDistances - 1, 5);
  writer.Put(mLengthCount - 4, 4);
  writer.Flush();
  for (std::size_t i = 0; i < mLengthCount; ++i) {
    writer.Put(mLengths[Order[i]], 3);
    writer.Flush();
  }
  std::array<std::uint16_t, Symbols> words;
  BuildCodeWords(mLengths, words);
  for (std::size_t i = 0; i < mCount; ++i) {
    const auto [symbol, extra] = mRuns[i];
    writer.Put(words[symbol], mLengths[symbol]);
    writer.Put(extra, ExtraBits(symbol));
    writer.Flush();
  }
}

int CodeHeader::ExtraBits(std::size_t symbol) {
  return symbol == 16 ? 2 : symbol == 17 ? 3 : symbol == 18 ? 7 : 0;
}

void CodeHeader::Add(std::size_t symbol, std::size_t extra) {
  mRuns[mCount++] = {static_cast<std::uint8_t>(symbol), static_cast<std::uint8_t>(extra)};
}

void CodeHeader::AddRun(std::size_t length, std::size_t count) {
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

}  // namespace ChunkCodec
