// Moves whole chunks of a table past the library's filter pipeline: the bytes are encoded and
// decoded by our own codec, on worker threads where it pays, and HDF5 only stores and finds them
// (H5Dwrite_chunk and H5Dread_chunk, since HDF5 1.10.3).
#pragma once

#include <hdf5.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "Utils/Tables/Columns.hpp"
#include "Utils/Tables/PendingReads.hpp"
#include "Utils/Tables/RowRun.hpp"

namespace Tables {

/// Whether chunks of the dataset can be moved so: each is a run of rows of a single column, of
/// native doubles, under no filter or ours in our order and with our parameters. `filters` tells
/// which.
bool CanMoveChunks(hid_t type_id, hid_t cparms_id, ChunkCodec::Filters& filters);

/// Reads runs of a column as StartReading does. Chunks that the codec cannot take (never written,
/// or with a filter skipped) go through the library.
void StartReadingChunks(const OpenTable& table, std::uint64_t column, std::span<const RowRun> runs,
                        double* values, PendingReads& reads);

/// Stores the filtered bytes of the chunk that begins at this row. Fails with "H5Dwrite failed".
void WriteStoredChunk(const OpenTable& table, std::uint64_t row, std::uint64_t column,
                      std::span<const std::byte> stored);

}  // namespace Tables
