// Moves whole chunks of a table past the library's filter pipeline: the bytes are encoded and
// decoded by our own codec, on worker threads where it pays, and HDF5 only stores and finds them
// (H5Dwrite_chunk and H5Dread_chunk, since HDF5 1.10.3).
#pragma once

#include <hdf5.h>

#include <cstdint>

#include "Utils/H5/H5_Columns.hpp"

/// Whether chunks of the dataset can be moved so: each is a run of rows of a single column, of
/// native doubles, under no filter or ours in our order. `filters` tells which.
bool CanMoveChunks(hid_t dataset_id, hid_t cparms_id, ChunkCodec::Filters& filters);

/// Reads a block as ReadColumns does. Chunks that the codec cannot take (never written, or with a
/// filter skipped) go through the library. Fails with "Damaged chunk ..." on bytes that do not
/// decode.
void ReadChunks(const OpenTable& table, const ColumnBlock& block, double* values);

/// Writes rows as WriteColumns does; they begin and end where chunks do.
void WriteChunks(const OpenTable& table, std::uint64_t firstRow, std::uint64_t rows,
                 const ColumnSource& source);
