#include "Utils/ChunkCodec/ChunkEncoder.hpp"

#include <gmock/gmock.h>

#include <new>
#include <thread>
#include <vector>

#include "Utils/ChunkCodec/TestSupport/AwkwardColumns.hpp"
#include "Utils/Process/TestSupport/FailingNew.hpp"

namespace {

using ChunkCodec::ChunkEncoder;

const ChunkCodec::Filters EveryFilter = ChunkCodec::FiltersOfDoubles(true, true, true);

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

}  // namespace
