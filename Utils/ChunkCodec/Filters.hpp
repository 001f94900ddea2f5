// What HDF5's filter pipeline does to the bytes of one chunk of native doubles.
#pragma once

namespace ChunkCodec {

/// The filters of a dataset, in the one order that the codec knows, which is that of the HDF5
/// dataset creation calls of this system: first shuffle, then deflate, then Fletcher-32 when
/// writing; the other way round when reading. Each may be missing. All elements are doubles in
/// native byte order, so a chunk is its values' bytes as they lie in memory, and nothing is
/// skipped (filter mask 0).
struct Filters {
  bool mShuffle = false;
  bool mDeflate = false;
  bool mFletcher32 = false;
};

}  // namespace ChunkCodec
