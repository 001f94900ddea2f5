#include "Utils/ChunkCodec/MatchSearch.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

namespace ChunkCodec {

namespace {

constexpr int HashBits = 14;
constexpr std::size_t Ways = 2;
constexpr std::size_t WordBytes = 4;  // the shortest match
constexpr std::size_t MaxLength = 258;
constexpr std::size_t GoodLength = 32;  // no second candidate is looked at
// Steps grow by one byte for every so many looks in vain, up to a length.
constexpr int LooksPerStepBits = 6;
constexpr std::size_t MaxStep = 32;

template <class Word = std::uint32_t>
Word LoadWord(const std::uint8_t* p) {
  Word word = 0;
  std::memcpy(&word, p, sizeof(word));
  return word;
}

std::size_t Hash(std::uint32_t word) {
  return Ways * (word * 2654435761U >> (32 - HashBits));
}

// How many bytes are equal, at most `limit`; the first WordBytes are known to be.
std::size_t EqualBytes(const std::uint8_t* earlier, const std::uint8_t* later, std::size_t limit) {
  std::size_t n = WordBytes;
  if constexpr (std::endian::native == std::endian::little) {
    using LongWord = std::uint64_t;
    for (; n + sizeof(LongWord) <= limit; n += sizeof(LongWord)) {
      const LongWord difference = LoadWord<LongWord>(earlier + n) ^ LoadWord<LongWord>(later + n);
      if (difference != 0) {
        return n + static_cast<std::size_t>(std::countr_zero(difference)) / 8;
      }
    }
  }
  while (n < limit && earlier[n] == later[n]) {
    ++n;
  }
  return n;
}

}  // namespace

MatchSearch::MatchSearch() : mLastSeen(Ways << HashBits, 0) {}

void MatchSearch::Start(const std::uint8_t* origin, Looks looks) {
  constexpr std::uint32_t mostPositions = 1U << 31;
  if (mNextPosition > mostPositions) {
    std::fill(mLastSeen.begin(), mLastSeen.end(), 0);
    mNextPosition = 1;
  }
  mpOrigin = origin;
  mLooks = looks;
  mLooksInVain = 0;
  mFirstPosition = mNextPosition;
}

void MatchSearch::Remember(const std::uint8_t* p) {
  std::uint32_t* const seen = &mLastSeen[Hash(LoadWord(p))];
  seen[1] = seen[0];
  seen[0] = Position(p);
}

void MatchSearch::Learn(std::span<const std::uint8_t> bytes) {
  for (std::size_t i = 0; i + WordBytes <= bytes.size(); ++i) {
    Remember(&bytes[i]);
  }
  mNextPosition = Position(bytes.data() + bytes.size());
}

// Looks for the bytes at p, and remembers them.
MatchSearch::Match MatchSearch::Find(const std::uint8_t* p, const std::uint8_t* end) {
  const std::uint32_t word = LoadWord(p);
  std::uint32_t* const seen = &mLastSeen[Hash(word)];
  const std::uint32_t position = Position(p);
  const std::size_t limit = std::min(MaxLength, static_cast<std::size_t>(end - p));
  Match best;
  for (std::size_t way = 0; way < Ways && best.mLength < GoodLength; ++way) {
    const std::size_t distance = position - seen[way];
    if (seen[way] < mFirstPosition || distance > MaxDistance) {
      break;
    }
    if (LoadWord(p - distance) == word) {
      const std::size_t length = EqualBytes(p - distance, p, limit);
      if (length > best.mLength) {
        best = {length, distance};
      }
    }
  }
  seen[1] = seen[0];
  seen[0] = position;
  return best;
}

std::size_t MatchSearch::TakeBlock(std::span<const std::uint8_t> bytes,
                                   std::vector<Sequence>& sequences) {
  const std::uint8_t* const begin = bytes.data();
  const std::uint8_t* const end = begin + bytes.size();
  // Before it a word can be read.
  const std::uint8_t* const last = bytes.size() < WordBytes ? begin : end - WordBytes + 1;
  const std::uint8_t* literals = begin;
  const std::uint8_t* p = begin;
  std::size_t symbols = 0;
  Match match;
  while (p < last && symbols + static_cast<std::size_t>(p - literals) < BlockSymbols) {
    if (match.mLength != 0 && LoadWord(p) == LoadWord(p - match.mDistance)) {
      // What repeats often goes on repeating at the same distance.
      match.mLength = EqualBytes(p - match.mDistance, p,
                                 std::min(MaxLength, static_cast<std::size_t>(end - p)));
      Remember(p);
    } else {
      match = Find(p, end);
    }
    if (match.mLength == 0) {
      mLooksInVain += mLooks == Looks::ThinningOut ? 1 : 0;
      const std::size_t step = std::min(MaxStep, 1 + (mLooksInVain >> LooksPerStepBits));
      p += std::min(step, static_cast<std::size_t>(end - p));
      continue;
    }
    mLooksInVain = 0;
    // Steps may have passed the beginning.
    while (p > literals &&
           match.mLength<MaxLength&& static_cast<std::size_t>(p - mpOrigin)> match.mDistance &&
           p[-1] == *(p - 1 - match.mDistance)) {
      --p;
      ++match.mLength;
    }
    sequences.push_back({static_cast<std::uint32_t>(p - literals),
                         static_cast<std::uint16_t>(match.mLength),
                         static_cast<std::uint16_t>(match.mDistance)});
    symbols += static_cast<std::size_t>(p - literals) + 1;
    p += match.mLength;
    literals = p;
    // The inside of matches is not remembered: it would take the place of what stood before it in
    // long runs, and so hide repeats at longer distances.
  }
  // What is too little for a look of its own belongs to the block before it.
  p = p < last ? p : end;
  if (p > literals) {
    sequences.push_back({static_cast<std::uint32_t>(p - literals), 0, 0});
  }
  mNextPosition = Position(p);
  return static_cast<std::size_t>(p - begin);
}

}  // namespace ChunkCodec
