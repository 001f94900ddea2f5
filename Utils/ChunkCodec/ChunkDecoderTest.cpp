#include "Utils/ChunkCodec/ChunkDecoder.hpp"

#include <gmock/gmock.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "Utils/ChunkCodec/ChunkEncoder.hpp"
#include "Utils/ChunkCodec/Fletcher32.hpp"
#include "Utils/ChunkCodec/TestSupport/AwkwardColumns.hpp"
#include "Utils/ChunkCodec/TestSupport/DecodeChunk.hpp"

namespace {

using namespace ChunkCodec;

const Filters AllFilters = FiltersOfDoubles(true, true, true);
const Filters NoChecksum = FiltersOfDoubles(true, true, false);
const Filters ShuffleOnly = FiltersOfDoubles(true, false, false);
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
  const auto shuffled = EncodeChunk(values, ShuffleOnly);
  EXPECT_EQ(DecodeChunk(shuffled, ShuffleOnly, fewer), DecodeStatus::TooManyValues);
  EXPECT_EQ(DecodeChunk(shuffled, ShuffleOnly, more), DecodeStatus::TooFewValues);
  auto damaged = EncodeChunk(values, NoChecksum);
  damaged.push_back(std::byte{0});
  EXPECT_EQ(DecodeChunk(damaged, NoChecksum, decoded), DecodeStatus::Ok);
  damaged.end()[-2] ^= std::byte{1};
  EXPECT_EQ(DecodeChunk(damaged, NoChecksum, decoded), DecodeStatus::WrongChecksum);
  damaged[0] = std::byte{0x79};
  EXPECT_EQ(DecodeChunk(damaged, NoChecksum, decoded), DecodeStatus::CorruptStream);

  // The checksum of old files, its bytes exchanged.
  auto old = EncodeChunk(values, AllFilters);
  std::swap(old.end()[-4], old.end()[-3]);
  std::swap(old.end()[-2], old.end()[-1]);
  EXPECT_EQ(DecodeChunk(old, AllFilters, decoded), DecodeStatus::Ok);
}

TEST(ChunkDecoder, UndoesFiltersInAnyOrderForElementsOfAnySize) {
  // The checksum of what is deflated thereafter; elements of three bytes and two bytes left over.
  const std::string text = "adgjbehkcfi..";
  const std::string unshuffled = "abcdefghijk..";
  std::vector<std::byte> checked(text.size());
  std::memcpy(checked.data(), text.data(), text.size());
  AppendFletcher32(checked);
  std::vector<std::byte> deflated(100);
  uLongf size = deflated.size();
  ASSERT_EQ(compress(reinterpret_cast<Bytef*>(deflated.data()), &size,
                     reinterpret_cast<const Bytef*>(checked.data()), checked.size()),
            Z_OK);
  deflated.resize(size);
  // HDF5 leaves alone what is no two elements, however large they are.
  const Filters filters = {{sShuffle, 1, 3}, {sShuffle, 1, 1U << 31}, {sFletcher32}, {sDeflate}};
  ChunkDecoder decoder;
  for (const auto& [chunkBytes, expected] :
       {std::pair(text.size() + 1, DecodeStatus::TooFewValues),
        std::pair(text.size() - 1, DecodeStatus::TooManyValues),
        std::pair(std::size_t{1} << 60, DecodeStatus::TooFewValues),
        std::pair(text.size(), DecodeStatus::Ok)}) {
    EXPECT_EQ(decoder.Decode(deflated, {filters, chunkBytes, 1}), expected) << chunkBytes;
  }
  std::string taken(text.size(), ' ');
  decoder.Take(0, std::as_writable_bytes(std::span(taken)));
  EXPECT_EQ(taken, unshuffled);

  // Only the checksum of such a chunk was skipped, or only the shuffle.
  const Filters two = {{sShuffle, 1, 2}, {sFletcher32}};
  std::vector<std::byte> stored(4);
  std::memcpy(stored.data(), "acbd", 4);
  taken.resize(4);
  for (const auto& [skipped, expected] : {std::pair(2U, "abcd"), std::pair(1U, "acbd")}) {
    ASSERT_EQ(decoder.Decode(stored, {two, 4, 2}, skipped), DecodeStatus::Ok);
    decoder.Take(0, std::as_writable_bytes(std::span(taken)));
    EXPECT_EQ(taken, expected);
    AppendFletcher32(stored);
  }
}

}  // namespace
