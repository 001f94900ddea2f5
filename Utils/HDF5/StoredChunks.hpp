// What the chunks of a dataset take on disk. Asked for that, or for the number of chunks, the
// library goes through the whole index, which in a damaged file claims any number of them, or leads
// back into itself. Here each chunk that the extents have is looked up, and never more of them than
// the file has room for.
#pragma once

#include <hdf5.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Vexa_H5 {

/// Tells where the chunks of a dataset lie.
struct ChunkGrid {
  std::vector<hsize_t> mDims;
  std::vector<hsize_t> mChunk;  // the extents of one; empty if the dataset is not chunked

  /// Returns how many the extents have, written or not; a floating-point number, since damaged
  /// extents may have any.
  long double Places() const;
};

/// Returns the grid of an open dataset, whose creation list this is.
ChunkGrid ReadChunkGrid(hid_t dataset_id, hid_t cparms_id);

/// Looks up what a dataset takes on disk. None if it has, or the extents have, far more chunks than
/// the file has room for, or if they claim to take more than there is.
std::optional<std::uint64_t> LookUpStoredBytes(hid_t dataset_id, const ChunkGrid& grid);

/// Looks up the same, and fails unless the file has room for the chunks, and what is stored can
/// make the `claimed` bytes of values (see RequirePlausibleSize). The extents are judged before a
/// chunk is looked up. If a dataset leaves out so many chunks that they cannot all be looked up,
/// the size of the file is taken for what is stored.
std::uint64_t RequirePlausibleStorage(hid_t dataset_id, const ChunkGrid& grid, long double claimed,
                                      const std::string& name);

/// Fails unless the chunks of a dataset without filters, of which so many bytes are stored as
/// RequirePlausibleStorage() said, have together as many bytes on disk as they must have; chunks
/// may be missing. Of one that is too short HDF5 would read memory that nobody wrote into (1.10.8,
/// tried).
void RequireWholeChunks(hid_t dataset_id, const ChunkGrid& grid, std::uint64_t stored,
                        const std::string& name);

/// Returns the bytes of a chunk of the dataset without filters. Fails if the library, which (up
/// to 1.14) counts them in 32 bits, cannot have them.
std::uint64_t BytesOfChunk(hid_t dataset_id, const ChunkGrid& grid, const std::string& name);

/// Returns the size of the file of an open object.
std::uint64_t FileSizeOf(hid_t object_id);

}  // namespace Vexa_H5
