#include "Utils/ChunkCodec/ShortChunk.hpp"

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

#include "Utils/ChunkCodec/Fletcher32.hpp"
#include "Utils/ChunkCodec/Shuffle.hpp"
#include "Utils/Process/PerThread.hpp"

namespace ChunkCodec {

namespace {

// A stream of zlib that is used for one chunk after the other: to make one takes longer than to
// deflate a short chunk. Its window and tables are as large as such a chunk needs.
class Deflater {
 public:
  Deflater() {
    const int level = 1;
    const int windowBits = 13;
    const int memoryLevel = 6;
    if (deflateInit2(&mStream, level, Z_DEFLATED, windowBits, memoryLevel, Z_DEFAULT_STRATEGY) !=
        Z_OK) {
      throw std::bad_alloc();
    }
  }
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;
  ~Deflater() { deflateEnd(&mStream); }

  // Appends the stream of these bytes.
  void Append(std::span<const std::uint8_t> bytes, std::vector<std::byte>& to) {
    deflateReset(&mStream);
    const std::size_t before = to.size();
    to.resize(before + deflateBound(&mStream, static_cast<uLong>(bytes.size())));
    mStream.next_in = const_cast<Bytef*>(bytes.data());  // zlib does not write to it
    mStream.avail_in = static_cast<uInt>(bytes.size());
    mStream.next_out = reinterpret_cast<Bytef*>(to.data() + before);
    mStream.avail_out = static_cast<uInt>(to.size() - before);
    deflate(&mStream, Z_FINISH);
    to.resize(before + mStream.total_out);
  }

 private:
  z_stream mStream{};
};

}  // namespace

std::vector<std::byte> EncodeShortChunk(std::span<const double> values, const Filters& filters) {
  std::vector<std::uint8_t> bytes(values.size_bytes());
  if (Has(filters, sShuffle)) {
    Shuffle(values, bytes.data(), values.size());
  } else {
    std::memcpy(bytes.data(), values.data(), bytes.size());
  }
  std::vector<std::byte> chunk;
  if (Has(filters, sDeflate)) {
    PerThread<Deflater>().Append(bytes, chunk);
  } else {
    const auto unfiltered = std::as_bytes(std::span(bytes));
    chunk.assign(unfiltered.begin(), unfiltered.end());
  }
  if (Has(filters, sFletcher32)) {
    AppendFletcher32(chunk);
  }
  return chunk;
}

}  // namespace ChunkCodec
