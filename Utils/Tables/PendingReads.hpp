// Values on their way from files to memory: what is stored has been fetched, and worker threads
// decode it while the next is fetched.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "Utils/ChunkCodec/ChunkDecoder.hpp"
#include "Utils/ErrorHandling/RequireFail.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/Process/WorkerPool.hpp"
#include "Utils/Tables/ChunkReader.hpp"
#include "Utils/Tables/Columns.hpp"

#pragma GCC visibility push(default)

namespace Tables {

/// What is to be known of a table when values arrive, though it may be closed by then.
struct ChunkOrigin {
  TableLayout mLayout;
  std::string mName;
  Vexa_H5::DatatypeHandle mType;  // of elements that are not doubles
  // The context in which chunks were fetched, for reports.
  std::string mDataset = Vexa::ReportContext::Dataset();
  std::string mFile = Vexa::ReportContext::File();
  const char* mLabel = Vexa::ReportAs::Label();
};

class PendingReads {
 public:
  /// Has the chunk decoded by whichever thread comes to it, a short one together with others.
  /// Elements that are not doubles are converted by this thread, since the library is for one
  /// thread. Fails as Finish() does.
  void Decode(std::shared_ptr<const ChunkOrigin> origin, StoredChunk chunk, Target target);

  /// Returns when all values are in place. Fails with "H5Dread failed for name=..." on bytes that
  /// do not decode, with the context in which they were fetched.
  void Finish();

  /// Forgets all of them, after a failure; returns when nothing is written to their places any
  /// more.
  void Drop();

 private:
  // A chunk on its way.
  struct Item {
    std::shared_ptr<const ChunkOrigin> mpOrigin;
    StoredChunk mChunk;
    Target mTarget;
    ChunkCodec::ChunkDecoder mDecoder = {};
    ChunkCodec::DecodeStatus mStatus = ChunkCodec::DecodeStatus::Ok;

    // What the chunk takes in memory until it is finished, as far as that is limited: a chunk of
    // one column of doubles goes where it is wanted as soon as it is decoded.
    std::uint64_t LimitedBytes() const;
    void Decode();
    void Finish();
    void Deliver() const;
  };

  // Chunks that are worth a task together. Any thread may decode them; the thread that fetched them
  // finishes them then.
  struct Batch {
    std::vector<Item> mItems = {};
    std::uint64_t mValues = 0;
    std::uint64_t mLimitedBytes = 0;
    bool mIsBegun = false;
    Vexa::TaskGroup mTask = {};  // last: it waits for a task that uses the others

    void Begin();
  };

  void FinishFirst();

  std::deque<Batch> mBatches;       // elements stay where they are; only the last is not begun
  std::uint64_t mLimitedBytes = 0;  // of all batches
};

}  // namespace Tables

#pragma GCC visibility pop
