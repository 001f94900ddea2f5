#include "Utils/HDF5/StoredChunks.hpp"

#include <algorithm>
#include <limits>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/StringElements.hpp"

namespace Vexa_H5 {

namespace {

// A chunk takes the bytes of an element, and of an address in the index.
constexpr std::uint64_t sLeastBytesOfChunk = 4;
// So many places are looked up in less than a second, which lets datasets be created long before
// they are written.
constexpr std::uint64_t sHarmlessPlaces = 1U << 20;

std::uint64_t MostChunks(std::uint64_t fileSize) {
  return std::max(sHarmlessPlaces, fileSize / sLeastBytesOfChunk);
}

#if H5_VERSION_GE(1, 14, 0)

struct TreeWalk {
  std::uint64_t mChunksLeft;
  std::uint64_t mBytes;
};

int TakeChunk(const hsize_t*, unsigned, haddr_t, hsize_t size, void* data) {
  TreeWalk& walk = *static_cast<TreeWalk*>(data);
  if (walk.mChunksLeft == 0) {
    return H5_ITER_STOP;
  }
  --walk.mChunksLeft;
  walk.mBytes += size;
  return H5_ITER_CONT;
}

// Walks over the tree that files have had from the first version on. Only there do chunks without
// filters have a size of their own, and the library does not tell that of a single chunk.
std::optional<std::uint64_t> WalkTree(hid_t dataset_id, const ChunkGrid&, std::uint64_t fileSize) {
  TreeWalk walk{MostChunks(fileSize), 0};
  const herr_t result = H5Dchunk_iter(dataset_id, H5P_DEFAULT, TakeChunk, &walk);
  REQUIRE_FOR_CALLER(result>=0, "H5Dchunk_iter failed");
  return result == H5_ITER_STOP ? std::nullopt : std::optional(walk.mBytes);
}

#else

// Does the same with a library that does not let a walk be ended.
std::optional<std::uint64_t> WalkTree(hid_t dataset_id, const ChunkGrid& grid,
                                      std::uint64_t fileSize) {
  const DataspaceHandle space_id(H5Dget_space(dataset_id));
  REQUIRE_FOR_CALLER(space_id>=0, "H5Dget_space failed");
  // The walk to a chunk ends there, and there is none behind as many as can be.
  std::vector<hsize_t> offset(grid.mDims.size());
  unsigned filterMask = 0;
  haddr_t address = HADDR_UNDEF;
  hsize_t size = 0;
  const herr_t err = H5Dget_chunk_info(dataset_id, space_id, MostChunks(fileSize), offset.data(),
                                       &filterMask, &address, &size);
  REQUIRE_FOR_CALLER(err>=0, "H5Dget_chunk_info failed");
  if (address != HADDR_UNDEF) {
    return {};
  }
  return H5Dget_storage_size(dataset_id);
}

#endif

bool HasTree(hid_t dataset_id) {
  H5D_chunk_index_t index = H5D_CHUNK_IDX_BTREE;
  const herr_t err = H5Dget_chunk_index_type(dataset_id, &index);
  REQUIRE_FOR_CALLER(err>=0, "H5Dget_chunk_index_type failed");
  return index == H5D_CHUNK_IDX_BTREE;
}

std::optional<std::uint64_t> LookUpEach(hid_t dataset_id, const ChunkGrid& grid,
                                        std::uint64_t fileSize) {
  std::uint64_t bytes = 0;
  // The library fails on a chunk that was never written.
  const MuteH5Errors mute;
  const std::size_t rank = grid.mDims.size();
  std::vector<hsize_t> offset(rank, 0);
  for (std::size_t d = rank; d > 0;) {
    hsize_t size = 0;
    if (H5Dget_chunk_storage_size(dataset_id, offset.data(), &size) >= 0 && size > 0) {
      if (size > fileSize - bytes) {
        return {};
      }
      bytes += size;
    }
    // Chunks follow one another in the order of the index: the last dimension runs fastest.
    for (d = rank; d > 0 && (offset[d - 1] += grid.mChunk[d - 1]) >= grid.mDims[d - 1]; --d) {
      offset[d - 1] = 0;
    }
  }
  return bytes;
}

// Whether each can be looked up. Where chunks are left out, a sound dataset has more of them.
bool HasFewPlaces(const ChunkGrid& grid, std::uint64_t fileSize) {
  return grid.Places() <= static_cast<long double>(MostChunks(fileSize));
}

std::optional<std::uint64_t> LookUp(hid_t dataset_id, const ChunkGrid& grid,
                                    std::uint64_t fileSize) {
  std::optional<std::uint64_t> bytes;
  if (grid.mChunk.empty()) {
    bytes = H5Dget_storage_size(dataset_id);
  } else if (grid.Places() == 0) {
    bytes = 0;
  } else if (HasTree(dataset_id)) {
    bytes = WalkTree(dataset_id, grid, fileSize);
  } else if (HasFewPlaces(grid, fileSize)) {
    bytes = LookUpEach(dataset_id, grid, fileSize);
  }
  return bytes && *bytes <= fileSize ? bytes : std::nullopt;
}

}  // namespace

long double ChunkGrid::Places() const {
  long double places = mChunk.empty() ? 0 : 1;
  for (std::size_t d = 0; d < mChunk.size(); ++d) {
    places *= mDims[d] / mChunk[d] + (mDims[d] % mChunk[d] == 0 ? 0 : 1);
  }
  return places;
}

ChunkGrid ReadChunkGrid(hid_t dataset_id, hid_t cparms_id) {
  const DataspaceHandle space_id(H5Dget_space(dataset_id));
  REQUIRE_FOR_CALLER(space_id>=0, "H5Dget_space failed");
  ChunkGrid grid;
  grid.mDims = Extents(space_id);
  const H5D_layout_t layout = H5Pget_layout(cparms_id);
  REQUIRE_FOR_CALLER(layout>=0, "H5Pget_layout failed");
  if (layout == H5D_CHUNKED) {
    grid.mChunk.resize(grid.mDims.size());
    const int rank =
        H5Pget_chunk(cparms_id, static_cast<int>(grid.mChunk.size()), grid.mChunk.data());
    REQUIRE_FOR_CALLER(rank>0 && rank==static_cast<int>(grid.mChunk.size()), "H5Pget_chunk failed");
    REQUIRE_FOR_CALLER(std::ranges::count(grid.mChunk, hsize_t{0})==0,
                       "H5Pget_chunk failed: a chunk has no extent");
  }
  return grid;
}

std::uint64_t FileSizeOf(hid_t object_id) {
  const Handle<H5Fclose> file_id(H5Iget_file_id(object_id));
  REQUIRE_FOR_CALLER(file_id>=0, "H5Iget_file_id failed");
  hsize_t size = 0;
  const herr_t err = H5Fget_filesize(file_id, &size);
  REQUIRE_FOR_CALLER(err>=0, "H5Fget_filesize failed");
  return size;
}

std::optional<std::uint64_t> LookUpStoredBytes(hid_t dataset_id, const ChunkGrid& grid) {
  return LookUp(dataset_id, grid, FileSizeOf(dataset_id));
}

std::uint64_t RequirePlausibleStorage(hid_t dataset_id, const ChunkGrid& grid, long double claimed,
                                      const std::string& name) {
  const std::uint64_t fileSize = FileSizeOf(dataset_id);
  RequirePlausibleSize(claimed, fileSize, name);
  if (!HasFewPlaces(grid, fileSize) && !HasTree(dataset_id)) {
    return fileSize;
  }
  const std::optional<std::uint64_t> stored = LookUp(dataset_id, grid, fileSize);
  REQUIRE_FOR_CALLER(stored.has_value(),
                     name << " claims more chunks, or more bytes in them, than its file of "
                     << fileSize
                          << " bytes has room for");
  RequirePlausibleSize(claimed, *stored, name);
  return *stored;
}

std::uint64_t BytesOfChunk(hid_t dataset_id, const ChunkGrid& grid, const std::string& name) {
  const DatatypeHandle type_id(H5Dget_type(dataset_id));
  REQUIRE_FOR_CALLER(type_id>=0, "H5Dget_type failed");
  const std::uint64_t elementBytes = ElementBytes(dataset_id, type_id);
  long double bytes = static_cast<long double>(elementBytes);
  for (const hsize_t extent : grid.mChunk) {
    bytes *= static_cast<long double>(extent);
  }
  REQUIRE_FOR_CALLER(bytes<=std::numeric_limits<std::uint32_t>::max(),
                     name << " claims chunks of " << static_cast<double>(bytes) << " bytes");
  return static_cast<std::uint64_t>(bytes);
}

void RequireWholeChunks(hid_t dataset_id, const ChunkGrid& grid, std::uint64_t stored,
                        const std::string& name) {
  if (grid.mChunk.empty() || !HasTree(dataset_id)) {
    return;
  }
  const DataspaceHandle space_id(H5Dget_space(dataset_id));
  REQUIRE_FOR_CALLER(space_id>=0, "H5Dget_space failed");
  hsize_t chunks = 0;
  const herr_t err = H5Dget_num_chunks(dataset_id, space_id, &chunks);
  REQUIRE_FOR_CALLER(err>=0, "H5Dget_num_chunks failed");
  const std::uint64_t expected = chunks * BytesOfChunk(dataset_id, grid, name);
  REQUIRE_FOR_CALLER(stored==expected, "Damaged chunks in " << name << ": " << stored
                     << " bytes instead of " << expected);
}

}  // namespace Vexa_H5
