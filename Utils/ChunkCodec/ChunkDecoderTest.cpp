#include "Utils/ChunkCodec/ChunkDecoder.hpp"

#include <gmock/gmock.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "Utils/ChunkCodec/AwkwardColumns.hpp"
#include "Utils/ChunkCodec/ChunkEncoder.hpp"
#include "Utils/ChunkCodec/Fletcher32.hpp"

namespace {

using ChunkCodec::DecodeStatus;
using ChunkCodec::Filters;
using ChunkCodec::FilterStep;

constexpr Filters AllFilters{true, true, true};
constexpr Filters NoChecksum{true, true, false};
constexpr std::size_t Count = 700;

TEST(ChunkDecoder, ReportsFlippedBitsAndEveryTruncation) {
  std::vector<double> decoded(Count);
  for (const AwkwardColumn& column : AwkwardColumns()) {
    SCOPED_TRACE(column.mName);
    auto checked = EncodeChunk(column.Values(Count), AllFilters);
    for (std::size_t bit = 0; bit < 8 * checked.size(); bit += 11) {
      checked[bit / 8] ^= std::byte{1} << bit % 8;
      EXPECT_EQ(DecodeChunk(checked, AllFilters, decoded), DecodeStatus::WrongChecksum) << bit;
      checked[bit / 8] ^= std::byte{1} << bit % 8;
    }
    const auto chunk = EncodeChunk(column.Values(Count), NoChecksum);
    for (std::size_t size = 0; size < chunk.size(); size += size < 200 ? 1 : 7) {
      // A copy of just that size, so that a read beyond it is one beyond the allocation.
      const std::vector<std::byte> cut(chunk.begin(), chunk.begin() + static_cast<long>(size));
      EXPECT_EQ(DecodeChunk(cut, NoChecksum, decoded), DecodeStatus::ShortStream) << size;
      EXPECT_EQ(DecodeChunk({checked.data(), size}, AllFilters, decoded),
                size < 4 ? DecodeStatus::ShortStream : DecodeStatus::WrongChecksum)
          << size;
    }
  }
}

TEST(ChunkDecoder, SaysWhatIsWrong) {
  const std::vector<double> values = AwkwardColumns().back().Values(Count);
  std::vector<double> decoded(Count);
  std::vector<double> fewer(Count - 1);
  std::vector<double> more(Count + 1);
  for (const Filters& filters : {NoChecksum, Filters{.mShuffle = true}}) {
    const auto chunk = EncodeChunk(values, filters);
    EXPECT_EQ(DecodeChunk(chunk, filters, fewer), DecodeStatus::TooManyValues);
    EXPECT_EQ(DecodeChunk(chunk, filters, more), DecodeStatus::TooFewValues);
    EXPECT_EQ(DecodeChunk(chunk, filters, {}), DecodeStatus::TooManyValues);
    EXPECT_EQ(DecodeChunk(EncodeChunk({}, filters), filters, {}), DecodeStatus::Ok);
  }
  auto damaged = EncodeChunk(values, NoChecksum);
  damaged.push_back(std::byte{0});
  EXPECT_EQ(DecodeChunk(damaged, NoChecksum, decoded), DecodeStatus::Ok);
  damaged.end()[-2] ^= std::byte{1};
  EXPECT_EQ(DecodeChunk(damaged, NoChecksum, decoded), DecodeStatus::WrongChecksum);
  damaged[0] = std::byte{0x79};
  EXPECT_EQ(DecodeChunk(damaged, NoChecksum, decoded), DecodeStatus::CorruptStream);
  EXPECT_STREQ(Describe(DecodeStatus::WrongChecksum), "wrong checksum");

  // The checksum of old files, its bytes exchanged.
  auto old = EncodeChunk(values, AllFilters);
  std::swap(old.end()[-4], old.end()[-3]);
  std::swap(old.end()[-2], old.end()[-1]);
  EXPECT_EQ(DecodeChunk(old, AllFilters, decoded), DecodeStatus::Ok);
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
      EXPECT_EQ(std::memcmp(part.data(), values.data() + begin, part.size_bytes()), 0);
    }
  }
}

TEST(ChunkDecoder, UndoesFiltersInAnyOrderForElementsOfAnySize) {
  using Kind = FilterStep::Kind;
  const std::vector<double> values = AwkwardColumns().front().Values(1000);
  const auto plain = std::as_bytes(std::span(values));
  const FilterStep all[] = {{Kind::Shuffle, 8}, {Kind::Deflate}, {Kind::Fletcher32}};
  std::vector<std::byte> bytes = EncodeChunk(values, AllFilters);
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
  std::vector<std::byte> deflated(100);
  uLongf size = deflated.size();
  ASSERT_EQ(compress(reinterpret_cast<Bytef*>(deflated.data()), &size,
                     reinterpret_cast<const Bytef*>(checked.data()), checked.size()),
            Z_OK);
  deflated.resize(size);
  // The library leaves alone what is no two elements, however large they are.
  const FilterStep other[] = {{Kind::Shuffle, 3},
                              {Kind::Shuffle, std::size_t{1} << 40},
                              {Kind::Fletcher32},
                              {Kind::Deflate}};
  for (const auto& [chunkBytes, expected] :
       {std::pair(text.size() + 1, DecodeStatus::TooFewValues),
        std::pair(text.size() - 1, DecodeStatus::TooManyValues),
        std::pair(std::size_t{1} << 60, DecodeStatus::TooFewValues),
        std::pair(text.size(), DecodeStatus::Ok)}) {
    bytes = deflated;
    EXPECT_EQ(UndoFilters(bytes, other, chunkBytes), expected) << chunkBytes;
  }
  EXPECT_TRUE(std::ranges::equal(bytes, std::as_bytes(std::span(unshuffled))));
}

}  // namespace
