#include "Utils/Tables/RawChunks.hpp"

#include <algorithm>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/StoredChunks.hpp"
#include "Utils/Tables/Storage.hpp"

namespace Tables {

using ChunkCodec::DecodeStatus;
using ChunkCodec::FilterStep;

void RequireDecoded(DecodeStatus status, const std::string& name, std::uint64_t row,
                    std::uint64_t column) {
  REQUIRE_FOR_CALLER(status==DecodeStatus::Ok,
             "H5Dread failed for name=" << name << ": damaged chunk at row " << row << " of column "
                                        << column << ": " << ChunkCodec::Describe(status));
}

#if H5_VERSION_GE(1, 10, 3)

namespace {

std::vector<FilterStep> StepsOf(const std::vector<Filter>& filters) {
  std::vector<FilterStep> steps;
  for (const Filter& filter : filters) {
    const FilterStep::Kind kind = filter.mNumber == H5Z_FILTER_SHUFFLE ? FilterStep::Kind::Shuffle
                                  : filter.mNumber == H5Z_FILTER_DEFLATE
                                      ? FilterStep::Kind::Deflate
                                      : FilterStep::Kind::Fletcher32;
    steps.push_back({kind, filter.mParameter});
  }
  return steps;
}

}  // namespace

RawChunks::RawChunks(hid_t dataset_id, const std::string& name)
    : mDataset_id(dataset_id), mName(name) {
  const Vexa_H5::PropertyListHandle cparms_id(H5Dget_create_plist(dataset_id));
  REQUIRE_FOR_CALLER(cparms_id>=0, "H5Dget_create_plist failed");
  if (H5Pget_layout(cparms_id) != H5D_CHUNKED) {
    return;
  }
  const Vexa_H5::ChunkGrid grid = Vexa_H5::ReadChunkGrid(dataset_id, cparms_id);
  mDims = grid.mDims;
  mExtents = grid.mChunk;
  mBytes = Vexa_H5::BytesOfChunk(dataset_id, grid, name);
  unsigned chunkOptions = 0;
  const herr_t err = H5Pget_chunk_opts(cparms_id, &chunkOptions);
  REQUIRE_FOR_CALLER(err>=0, "H5Pget_chunk_opts failed");
  mIsPlainAtEdges = (chunkOptions & H5D_CHUNK_DONT_FILTER_PARTIAL_CHUNKS) != 0;
  const std::vector<Filter> filters = ReadFilters(cparms_id);
  RequireKnownFilters(filters, name);
  mSteps = StepsOf(filters);
  mCanRead = true;
}

std::vector<std::byte> RawChunks::Read(const std::vector<hsize_t>& offset) const {
  const std::uint64_t row = offset[0];
  const std::uint64_t column = offset.size() > 1 ? offset[1] : 0;
  hsize_t size = 0;
  {
    // Fails on a chunk that was never written.
    const Vexa_H5::MuteH5Errors muted;
    if (H5Dget_chunk_storage_size(mDataset_id, offset.data(), &size) < 0 || size == 0) {
      return {};
    }
  }
  // No filter of these makes a chunk much larger than it was.
  RequireDecoded(size > 2 * mBytes + 65536 ? DecodeStatus::TooManyValues : DecodeStatus::Ok, mName,
                 row, column);
  std::vector<std::byte> bytes(size);
  std::uint32_t filterMask = 0;
  const herr_t err =
      H5Dread_chunk(mDataset_id, H5P_DEFAULT, offset.data(), &filterMask, bytes.data());
  REQUIRE_FOR_CALLER(err>=0, "H5Dread_chunk failed for name=" << mName);
  std::vector<FilterStep> steps;
  bool isAtEdge = false;
  for (std::size_t d = 0; d < mDims.size(); ++d) {
    isAtEdge = isAtEdge || offset[d] + mExtents[d] > mDims[d];
  }
  for (std::size_t i = 0; i < mSteps.size() && !(isAtEdge && mIsPlainAtEdges); ++i) {
    if ((filterMask >> i & 1) == 0) {  // not skipped
      steps.push_back(mSteps[i]);
    }
  }
  RequireDecoded(ChunkCodec::UndoFilters(bytes, steps, mBytes), mName, row, column);
  return bytes;
}

void RawChunks::ForEach(const std::function<void(const std::vector<std::byte>&)>& take) const {
  if (!mCanRead || std::ranges::count(mDims, hsize_t{0}) > 0) {
    return;
  }
  std::vector<hsize_t> offset(mDims.size(), 0);
  for (std::size_t d = 0; d < mDims.size();) {
    take(Read(offset));
    for (d = 0; d < mDims.size() && (offset[d] += mExtents[d]) >= mDims[d]; ++d) {
      offset[d] = 0;
    }
  }
}

#else

// Such a library hands out no chunks.
RawChunks::RawChunks(hid_t dataset_id, const std::string& name)
    : mDataset_id(dataset_id), mName(name) {}

std::vector<std::byte> RawChunks::Read(const std::vector<hsize_t>&) const {
  return {};
}

void RawChunks::ForEach(const std::function<void(const std::vector<std::byte>&)>&) const {}

#endif

void RequireSoundStorage(hid_t dataset_id, long double claimed, const std::string& name) {
  const Vexa_H5::PropertyListHandle cparms_id(H5Dget_create_plist(dataset_id));
  REQUIRE_FOR_CALLER(cparms_id>=0, "H5Dget_create_plist failed");
  const Vexa_H5::ChunkGrid grid = Vexa_H5::ReadChunkGrid(dataset_id, cparms_id);
  const std::uint64_t stored = Vexa_H5::RequirePlausibleStorage(dataset_id, grid, claimed, name);
  if (H5Pget_nfilters(cparms_id) == 0) {
    RequireWholeChunks(dataset_id, grid, stored, name);
  } else {
    RawChunks(dataset_id, name).ForEach([](const auto&) {});
  }
}

}  // namespace Tables
