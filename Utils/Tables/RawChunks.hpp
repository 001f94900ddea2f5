// Chunks of a dataset of any type and rank, with the filters undone here instead of by the library.
// From a damaged chunk that makes less than it should, the library (1.10.8, tried) goes on with
// memory that nobody wrote into; and it makes room for whatever a compressed stream says it holds.
#pragma once

#include <hdf5.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Utils/ChunkCodec/ChunkDecoder.hpp"

namespace Tables {

/// Fails unless a chunk was decoded: "H5Dread failed for name=<name>: damaged chunk at row ...".
void RequireDecoded(ChunkCodec::DecodeStatus status, const std::string& name, std::uint64_t row,
                    std::uint64_t column);

/// Of an open dataset, which is lent, as is its name. Fails on filters that are not known here (see
/// RequireKnownFilters).
class RawChunks {
 public:
  RawChunks(hid_t dataset_id, const std::string& name);

  /// Whether there are chunks, and the library hands them out (since 1.10.3). If not, there is
  /// nothing to read.
  bool CanRead() const { return mCanRead; }

  /// The elements of the chunk that begins at this place, as they lie in the file; none if it was
  /// never written. Fails as RequireDecoded() does.
  std::vector<std::byte> Read(const std::vector<hsize_t>& offset) const;

  /// Reads all chunks, one after the other; none if it cannot.
  void ForEach(const std::function<void(const std::vector<std::byte>&)>& take) const;

 private:
  hid_t mDataset_id;
  const std::string& mName;
  std::vector<hsize_t> mDims;
  std::vector<hsize_t> mExtents;  // of a chunk
  std::vector<ChunkCodec::FilterStep> mSteps;
  std::uint64_t mBytes = 0;      // of a chunk
  bool mIsPlainAtEdges = false;  // chunks that reach beyond the extents have no filters
  bool mCanRead = false;
};

/// Fails unless an open dataset can hold the `claimed` bytes (see RequirePlausibleStorage), and all
/// of its chunks are whole.
void RequireSoundStorage(hid_t dataset_id, long double claimed, const std::string& name);

}  // namespace Tables
