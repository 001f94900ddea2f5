#include "Utils/ChunkCodec/ChunkDecoder.hpp"

#include <gmock/gmock.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "Utils/ChunkCodec/AwkwardColumns.hpp"
#include "Utils/ChunkCodec/ChunkEncoder.hpp"
#include "Utils/ChunkCodec/Fletcher32.hpp"
#include "Utils/ChunkCodec/Shuffle.hpp"

namespace {

using ChunkCodec::DecodeStatus;
using ChunkCodec::Filters;
using ChunkCodec::FilterStep;

constexpr Filters AllFilters{true, true, true};
constexpr Filters NoChecksum{true, true, false};
constexpr std::size_t Count = 700;

bool SameBits(const std::vector<double>& a, const std::vector<double>& b) {
  return std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

std::uint32_t AdlerOfPlanes(const std::vector<double>& values) {
  std::vector<std::uint8_t> planes(values.size() * sizeof(double));
  ChunkCodec::Shuffle(values, planes.data(), values.size());
  return static_cast<std::uint32_t>(adler32_z(1, planes.data(), planes.size()));
}

// Flips every `step`-th bit of a chunk in turn.
void ExpectReports(const AwkwardColumn& column, std::size_t count, std::size_t step) {
  const std::vector<double> values = column.Values(count);
  std::vector<double> decoded(count);
  for (const Filters& filters : {AllFilters, NoChecksum}) {
    auto chunk = EncodeChunk(values, filters);
    for (std::size_t bit = 0; bit < 8 * chunk.size(); bit += step) {
      chunk[bit / 8] ^= std::byte{1} << bit % 8;
      const DecodeStatus status = DecodeChunk(chunk, filters, decoded);
      // On its own, the stream's Adler-32 misses a few flips in regular data.
      EXPECT_TRUE(filters.mFletcher32 ? status == DecodeStatus::WrongChecksum
                                      : status != DecodeStatus::Ok ||
                                            AdlerOfPlanes(decoded) == AdlerOfPlanes(values))
          << column.mName << ", bit " << bit << ": " << Describe(status);
      chunk[bit / 8] ^= std::byte{1} << bit % 8;
    }
  }
}

TEST(ChunkDecoder, ReportsFlippedBits) {
  for (const AwkwardColumn& column : AwkwardColumns()) {
    ExpectReports(column, 100, 1);
    ExpectReports(column, Count, 11);
    ExpectReports(column, 20000, 9973);
  }
}

TEST(ChunkDecoder, ReportsEveryTruncation) {
  std::vector<double> decoded(Count);
  for (const AwkwardColumn& column : AwkwardColumns()) {
    const auto chunk = EncodeChunk(column.Values(Count), NoChecksum);
    const auto checked = EncodeChunk(column.Values(Count), AllFilters);
    for (std::size_t size = 0; size < chunk.size(); size += size < 200 ? 1 : 7) {
      // A copy of just that size, so that a read beyond it is one beyond the allocation.
      const std::vector<std::byte> cut(chunk.begin(), chunk.begin() + static_cast<long>(size));
      EXPECT_EQ(DecodeChunk(cut, NoChecksum, decoded), DecodeStatus::ShortStream)
          << column.mName << ", " << size << " of " << chunk.size();
      EXPECT_EQ(DecodeChunk({checked.data(), size}, AllFilters, decoded),
                size < 4 ? DecodeStatus::ShortStream : DecodeStatus::WrongChecksum)
          << column.mName << ", " << size;
    }
  }
}

TEST(ChunkDecoder, SaysWhatIsWrong) {
  const std::vector<double> values = AwkwardColumns().back().Values(Count);
  const auto chunk = EncodeChunk(values, NoChecksum);
  std::vector<double> decoded(Count);
  std::vector<double> fewer(Count - 1);
  std::vector<double> more(Count + 1);
  EXPECT_EQ(DecodeChunk(chunk, NoChecksum, fewer), DecodeStatus::TooManyValues);
  EXPECT_EQ(DecodeChunk(chunk, NoChecksum, more), DecodeStatus::TooFewValues);
  EXPECT_EQ(DecodeChunk(chunk, NoChecksum, {}), DecodeStatus::TooManyValues);

  auto damaged = chunk;
  damaged.push_back(std::byte{0});
  EXPECT_EQ(DecodeChunk(damaged, NoChecksum, decoded), DecodeStatus::Ok);
  damaged = chunk;
  damaged.back() ^= std::byte{1};
  EXPECT_EQ(DecodeChunk(damaged, NoChecksum, decoded), DecodeStatus::WrongChecksum);
  damaged = chunk;
  damaged[0] = std::byte{0x79};
  EXPECT_EQ(DecodeChunk(damaged, NoChecksum, decoded), DecodeStatus::CorruptStream);

  const Filters shuffleOnly{.mShuffle = true};
  const auto plain = EncodeChunk(values, shuffleOnly);
  EXPECT_EQ(DecodeChunk(plain, shuffleOnly, fewer), DecodeStatus::TooManyValues);
  EXPECT_EQ(DecodeChunk(plain, shuffleOnly, more), DecodeStatus::TooFewValues);
  EXPECT_STREQ(Describe(DecodeStatus::WrongChecksum), "wrong checksum");
  EXPECT_STREQ(Describe(DecodeStatus::ShortStream), "short stream");
}

TEST(ChunkDecoder, ReportsRandomBytes) {
  std::mt19937_64 random(1);
  std::vector<double> decoded(Count);
  for (int round = 0; round < 2000; ++round) {
    std::vector<std::byte> bytes(random() % 300);
    for (std::byte& byte : bytes) {
      byte = static_cast<std::byte>(random());
    }
    if (bytes.size() > 2 && round % 2 == 0) {  // past the check of the header
      bytes[0] = std::byte{0x78};
      bytes[1] = std::byte{0x01};
    }
    EXPECT_NE(DecodeChunk(bytes, NoChecksum, decoded), DecodeStatus::Ok);
    EXPECT_NE(DecodeChunk(bytes, AllFilters, decoded), DecodeStatus::Ok);
  }
}

TEST(ChunkDecoder, AcceptsTheByteSwappedChecksumOfOldFiles) {
  const std::vector<double> values = AwkwardColumns().back().Values(Count);
  auto chunk = EncodeChunk(values, AllFilters);
  std::swap(chunk.end()[-4], chunk.end()[-3]);
  std::swap(chunk.end()[-2], chunk.end()[-1]);
  std::vector<double> decoded(Count);
  EXPECT_EQ(DecodeChunk(chunk, AllFilters, decoded), DecodeStatus::Ok);
  EXPECT_TRUE(SameBits(decoded, values));
}

TEST(ChunkDecoder, DecodesPartsOfAChunk) {
  const std::vector<double> values = AwkwardColumns().back().Values(Count);
  for (const Filters& filters : {AllFilters, NoChecksum, Filters{.mShuffle = true},
                                 Filters{.mDeflate = true}, Filters{.mFletcher32 = true}}) {
    const auto chunk = EncodeChunk(values, filters);
    std::vector<double> first(3);
    std::vector<double> middle(Count / 2);
    std::vector<double> last(1);
    const ChunkCodec::ChunkPart parts[] = {{0, first}, {7, middle}, {Count - 1, last}};
    ASSERT_EQ(DecodeChunk(chunk, filters, Count, parts), DecodeStatus::Ok);
    for (const auto& [begin, part] : parts) {
      const auto from = values.begin() + static_cast<std::ptrdiff_t>(begin);
      EXPECT_TRUE(SameBits({part.begin(), part.end()},
                           {from, from + static_cast<std::ptrdiff_t>(part.size())}));
    }
  }
}

TEST(ChunkDecoder, UndoesFiltersInAnyOrderForElementsOfAnySize) {
  using Kind = FilterStep::Kind;
  const std::vector<double> values = AwkwardColumns().front().Values(1000);
  const auto plain = std::as_bytes(std::span(values));
  const FilterStep all[] = {{Kind::Shuffle, 8}, {Kind::Deflate}, {Kind::Fletcher32}};
  const std::vector<std::byte> encoded = EncodeChunk(values, AllFilters);
  std::vector<std::byte> bytes = encoded;
  ASSERT_EQ(UndoFilters(bytes, all, plain.size()), DecodeStatus::Ok);
  EXPECT_TRUE(std::ranges::equal(bytes, plain));

  // The checksum of what is deflated thereafter; elements of three bytes and two bytes left over.
  const std::string text = "adgjbehkcfi..";
  const std::string unshuffled = "abcdefghijk..";
  const std::uint32_t sum = ChunkCodec::Fletcher32(std::as_bytes(std::span(text)));
  std::string checked = text;
  for (int i = 0; i < 4; ++i) {
    checked += static_cast<char>(sum >> 8 * i);
  }
  const FilterStep other[] = {{Kind::Shuffle, 3}, {Kind::Fletcher32}, {Kind::Deflate}};
  bytes.resize(100);
  uLongf size = bytes.size();
  ASSERT_EQ(compress(reinterpret_cast<Bytef*>(bytes.data()), &size,
                     reinterpret_cast<const Bytef*>(checked.data()), checked.size()),
            Z_OK);
  bytes.resize(size);
  const std::vector<std::byte> deflated = bytes;
  ASSERT_EQ(UndoFilters(bytes, other, text.size()), DecodeStatus::Ok);
  EXPECT_TRUE(std::ranges::equal(bytes, std::as_bytes(std::span(unshuffled))));

  for (const auto& [chunkBytes, expected] :
       {std::pair(text.size() + 1, DecodeStatus::TooFewValues),
        std::pair(text.size() - 1, DecodeStatus::TooManyValues),
        std::pair(std::size_t{1} << 60, DecodeStatus::TooFewValues)}) {
    bytes = deflated;
    EXPECT_EQ(UndoFilters(bytes, other, chunkBytes), expected) << chunkBytes;
  }
}

TEST(ChunkDecoder, NoValuesAreAChunkToo) {
  for (const Filters& filters : {AllFilters, NoChecksum, Filters{}}) {
    EXPECT_EQ(DecodeChunk(ChunkCodec::EncodeChunk({}, filters), filters, {}), DecodeStatus::Ok);
  }
}

}  // namespace
