#include "Utils/ChunkCodec/ChunkEncoder.hpp"

#include <gmock/gmock.h>
#include <zlib.h>

#include <new>
#include <thread>
#include <vector>

#include "Utils/ChunkCodec/AwkwardColumns.hpp"
#include "Utils/ChunkCodec/Shuffle.hpp"
#include "Utils/Process/TestSupport/FailingNew.hpp"

namespace {

using ChunkCodec::ChunkEncoder;
using ChunkCodec::Filters;

const Filters EveryFilter = ChunkCodec::FiltersOfDoubles(true, true, true);

// Nor must the workspace of this thread, which others lack, carry anything into the next chunk.
TEST(ChunkEncoder, GivesTheSameBytesForAnyNumberOfThreads) {
  for (const AwkwardColumn& column : AwkwardColumns()) {
    for (const std::size_t count : {30000U, 600001U}) {
      const std::vector<double> values = column.Values(count);
      const ChunkEncoder encoder(values, EveryFilter);
      std::vector<ChunkEncoder::Piece> pieces(encoder.PieceCount());
      ASSERT_EQ(pieces.size(), count > 30000 ? 3U : 1U);
      std::vector<std::jthread> threads;
      for (std::size_t i = pieces.size(); i-- > 0;) {
        threads.emplace_back([&, i] { pieces[i] = encoder.EncodePiece(i); });
      }
      threads.clear();
      EXPECT_EQ(encoder.Assemble(pieces), EncodeChunk(values, EveryFilter)) << column.mName;
    }
  }
}

TEST(ChunkEncoder, GivesTheSameBytesAfterMemoryRanOut) {
  const std::vector<double> values = AwkwardColumns().front().Values(5000);
  const std::vector<std::byte> expected = EncodeChunk(values, EveryFilter);
  for (const AwkwardColumn& column : AwkwardColumns()) {
    const std::vector<double> before = column.Values(60000);
    bool hasFailed = true;
    for (int allocations = 0; hasFailed; ++allocations) {
      std::thread([&] {
        sAllocationsLeft = allocations;
        try {
          EncodeChunk(before, EveryFilter);
          hasFailed = false;
        } catch (const std::bad_alloc&) {
        }
        sAllocationsLeft = -1;
        EXPECT_EQ(EncodeChunk(values, EveryFilter), expected) << column.mName << allocations;
      }).join();
    }
  }
}

TEST(ChunkEncoder, IsHardlyLargerThanZlibAtLevelOne) {
  const Filters noChecksum = ChunkCodec::FiltersOfDoubles(true, true, false);
  for (const AwkwardColumn& column : AwkwardColumns()) {
    for (const std::size_t count : {1U, 100U, 1000U, 8000U, 60000U, 300001U}) {
      const std::vector<double> values = column.Values(count);
      const std::size_t bytes = count * sizeof(double);
      std::vector<std::uint8_t> planes(bytes);
      ChunkCodec::Shuffle(values, planes.data(), count);
      uLongf zlibSize = compressBound(bytes);
      std::vector<std::uint8_t> compressed(zlibSize);
      ASSERT_EQ(compress2(compressed.data(), &zlibSize, planes.data(), bytes, 1), Z_OK);

      const std::size_t size = EncodeChunk(values, noChecksum).size();
      const auto raw = static_cast<double>(bytes);
      // Columns of which next to nothing is left need room for the headers of their pieces.
      EXPECT_LE(size, 1.02 * static_cast<double>(zlibSize) + 0.002 * raw + 16)
          << column.mName << ", " << count;
      EXPECT_LE(size, 1.001 * raw + 100) << column.mName << ", " << count;
    }
  }
}

}  // namespace
