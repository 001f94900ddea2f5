// Values on their way from files to memory: what is stored has been fetched, and worker threads
// decode it while the next is fetched.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "Utils/ChunkCodec/ChunkDecoder.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/Process/WorkerPool.hpp"
#include "Utils/Tables/ChunkReader.hpp"
#include "Utils/Tables/Columns.hpp"

namespace Tables {

class PendingReads {
 public:
  /// Has the chunk decoded by whichever thread comes to it, or decodes it if it is short. Its table
  /// may be closed before it is. Elements that are not doubles, of the type that is given, are
  /// converted by this thread, since the library is for one thread. Fails as Finish() does.
  void Decode(const OpenTable& table, hid_t type_id, StoredChunk chunk, Target target);

  /// Returns when all values are in place. Fails with "H5Dread failed for name=..." on bytes that
  /// do not decode, with the context in which they were fetched.
  void Finish();

 private:
  // A chunk, and what is needed to bring its values to where they go.
  struct Item {
    const TableLayout& mLayout;
    const std::string& mName;
    hid_t mType_id;  // of the elements
    StoredChunk mChunk;
    Target mTarget;
    ChunkCodec::ChunkDecoder mDecoder = {};
    ChunkCodec::DecodeStatus mStatus = ChunkCodec::DecodeStatus::Ok;

    bool IsConverted() const { return !mLayout.mHoldsDoubles; }
    std::uint64_t Bytes() const { return mChunk.mSize + FormatOf(mLayout).mChunkBytes; }
    void Decode();
    void Deliver() const;
  };
  // A table, and the context in which chunks of it were fetched.
  struct Origin {
    TableLayout mLayout;
    std::string mName;
    std::string mDataset;
    std::string mFile;
    const char* mLabel;
    Vexa_H5::DatatypeHandle mType;
  };
  struct WaitingItem {
    std::unique_ptr<const Origin> mpOrigin;
    Item mItem;
    TaskGroup mTask = {};  // last: it waits for a task that uses the others
  };

  void FinishFirst();

  std::deque<WaitingItem> mWaiting;     // elements stay where they are
  std::uint64_t mUnconvertedBytes = 0;  // of those whose elements wait for this thread
};

}  // namespace Tables
