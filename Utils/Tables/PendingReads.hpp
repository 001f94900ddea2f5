// Values on their way from files to memory: what is stored has been fetched, and worker threads
// decode it while the next is fetched.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "Utils/ChunkCodec/ChunkDecoder.hpp"
#include "Utils/Process/WorkerPool.hpp"
#include "Utils/Tables/Columns.hpp"

namespace Tables {

/// A chunk as it is stored, and where its values go.
struct StoredChunk {
  std::uint64_t mRow = 0;  // of its first row
  std::uint64_t mColumn = 0;
  std::unique_ptr<std::byte[]> mpBytes;
  std::size_t mSize = 0;
  ChunkCodec::Filters mFilters;
  std::vector<ChunkCodec::ChunkPart> mParts;
};

class PendingReads {
 public:
  /// Has the chunk decoded by whichever thread comes to it, or decodes it if it is short. Its table
  /// may be closed before it is. Fails as Finish() does.
  void Decode(const OpenTable& table, StoredChunk chunk);

  /// Returns when all values are in place. Fails with "H5Dread failed for name=..." on bytes that
  /// do not decode, with the context in which they were fetched.
  void Finish();

 private:
  // A table, as reports name it.
  struct Origin {
    std::string mName;
    std::string mDataset;
    std::string mFile;
    const char* mLabel;
  };
  struct Item {
    StoredChunk mChunk;
    const Origin* mpOrigin;
    ChunkCodec::DecodeStatus mStatus = ChunkCodec::DecodeStatus::Ok;
  };

  std::deque<Origin> mOrigins;  // elements stay where they are
  std::deque<Item> mItems;
  TaskGroup mTasks;  // last: it waits for tasks that use the others
};

}  // namespace Tables
