#include "Utils/ChunkCodec/Inflate.hpp"

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <string_view>

#ifdef VEXA_HAVE_LIBDEFLATE
#include <libdeflate.h>
#endif

#include "Utils/Process/PerThread.hpp"

namespace ChunkCodec {

namespace {

// zlib counts in 32 bits; a larger buffer is handed over in parts.
uInt TakePart(std::size_t& left) {
  const auto part =
      static_cast<uInt>(std::min<std::size_t>(left, std::numeric_limits<uInt>::max()));
  left -= part;
  return part;
}

DecodeStatus InflateWithZlib(std::span<const std::byte> stream, std::span<std::byte> out) {
  z_stream z{};
  if (inflateInit(&z) != Z_OK) {
    throw std::bad_alloc();
  }
  const std::unique_ptr<z_stream, int (*)(z_stream*)> end(&z, inflateEnd);
  // One byte more than asked for tells a stream that is too long from one that ends in time.
  std::uint8_t excess = 0;
  bool atExcess = false;
  std::size_t inLeft = stream.size();
  std::size_t outLeft = out.size();
  z.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(stream.data()));
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  int result = Z_OK;
  while (result == Z_OK) {
    if (z.avail_in == 0) {
      z.avail_in = TakePart(inLeft);
    }
    if (z.avail_out == 0) {
      z.avail_out = TakePart(outLeft);
      if (z.avail_out == 0 && !atExcess) {
        atExcess = true;
        z.next_out = &excess;
        z.avail_out = 1;
      }
    }
    result = inflate(&z, Z_NO_FLUSH);
  }
  const bool excessUsed = atExcess && z.avail_out == 0;
  if (excessUsed) {
    return DecodeStatus::TooManyValues;
  }
  switch (result) {
    case Z_STREAM_END:
      if (!atExcess && (z.avail_out > 0 || outLeft > 0)) {
        return DecodeStatus::TooFewValues;
      }
      return DecodeStatus::Ok;
    case Z_BUF_ERROR:  // no progress: there is room, so the input has run out
      return DecodeStatus::ShortStream;
    case Z_MEM_ERROR:
      throw std::bad_alloc();
    default:
      return z.msg != nullptr && std::string_view(z.msg) == "incorrect data check"
                 ? DecodeStatus::WrongChecksum
                 : DecodeStatus::CorruptStream;
  }
}

#ifdef VEXA_HAVE_LIBDEFLATE
struct Decompressor : std::unique_ptr<libdeflate_decompressor, void (*)(libdeflate_decompressor*)> {
  Decompressor() : unique_ptr(libdeflate_alloc_decompressor(), libdeflate_free_decompressor) {}
};

// Twice as fast as zlib, but does not say what is wrong with a bad stream.
bool InflateWithLibdeflate(std::span<const std::byte> stream, std::span<std::byte> out) {
  const Decompressor& decompressor = PerThread<Decompressor>();
  return decompressor != nullptr &&
         libdeflate_zlib_decompress_ex(decompressor.get(), stream.data(), stream.size(), out.data(),
                                       out.size(), nullptr, nullptr) == LIBDEFLATE_SUCCESS;
}
#endif

}  // namespace

DecodeStatus Inflate(std::span<const std::byte> stream, std::span<std::byte> out) {
#ifdef VEXA_HAVE_LIBDEFLATE
  if (InflateWithLibdeflate(stream, out)) {
    return DecodeStatus::Ok;
  }
#endif
  return InflateWithZlib(stream, out);
}

}  // namespace ChunkCodec
