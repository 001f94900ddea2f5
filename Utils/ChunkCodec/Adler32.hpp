// The checksum of the zlib format (RFC 1950), from whichever library computes it faster.
#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>

#ifdef VEXA_HAVE_LIBDEFLATE
#include <libdeflate.h>
#endif

namespace ChunkCodec {

inline constexpr std::uint32_t AdlerOfNothing = 1;

inline std::uint32_t Adler32(const std::uint8_t* bytes, std::size_t count) {
#ifdef VEXA_HAVE_LIBDEFLATE
  return libdeflate_adler32(AdlerOfNothing, bytes, count);
#else
  return static_cast<std::uint32_t>(adler32_z(AdlerOfNothing, bytes, count));
#endif
}

}  // namespace ChunkCodec
