// The input is a byte of flags, two bytes that give the number of values, and the stored bytes of a
// chunk. The flags are bits: 1 shuffle, 2 deflate, 4 Fletcher-32, 8 the right checksum is appended.
// What is read is stored again, with the same filters, and with those that the next bits (16, 32
// and 64) say.
#include <zlib.h>

#include <span>
#include <vector>

#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/ChunkCodec/ChunkEncoder.hpp"
#include "Utils/ChunkCodec/Fletcher32.hpp"
#include "Utils/ChunkCodec/TestSupport/DecodeChunk.hpp"

namespace {

using Values = std::vector<double>;
using namespace ChunkCodec;

// The reader of everybody else: whether the deflated bytes hold exactly so many values, and which.
// Bytes that follow are ignored, as HDF5 does.
bool InflatesWithZlib(std::span<const std::byte> stream, bool isShuffled, Values& values) {
  const std::size_t bytes = values.size() * sizeof(double);
  std::vector<Bytef> inflated(bytes + 1);  // zlib takes no null pointer
  uLongf size = bytes;
  uLong used = stream.size();
  const auto* next = reinterpret_cast<const Bytef*>(stream.data());
  const bool isDone = uncompress2(inflated.data(), &size, next, &used) == Z_OK && size == bytes;
  for (std::size_t i = 0; i < bytes; ++i) {
    reinterpret_cast<Bytef*>(values.data())[i] =
        inflated[isShuffled ? i % sizeof(double) * values.size() + i / sizeof(double) : i];
  }
  return isDone;
}

void CheckEncoding(const Values& values, const Filters& filters) {
  std::vector<std::byte> stored = EncodeChunk(values, filters);
  stored.shrink_to_fit();  // so that a read beyond it is one beyond its allocation
  Values decoded(values.size());
  const DecodeStatus status = DecodeChunk(stored, filters, decoded);
  FUZZ_CHECK(status == DecodeStatus::Ok && AreSameBits(decoded, values), Describe(status));
}

}  // namespace

void Fuzz::Target(std::string_view input) {
  constexpr std::size_t header = 3;
  constexpr std::size_t mostValues = 4096;
  if (input.size() < header) {
    return;
  }
  const auto byteAt = [input](int i) { return static_cast<unsigned char>(input[i]); };
  const unsigned flags = byteAt(0);
  const bool isSealed = (flags & 12U) == 12;
  Values values((byteAt(1) + 256U * byteAt(2)) % (mostValues + 1));

  const auto stream = std::as_bytes(std::span(input.substr(header)));
  std::vector<std::byte> stored(stream.begin(), stream.end());
  if (isSealed) {
    AppendFletcher32(stored);
  }
  stored.shrink_to_fit();

  const DecodeStatus status = DecodeChunk(stored, FiltersOfBits(flags), values);
  // Whatever zlib inflates, HDF5 reads, and so must we.
  Values expected(values.size());
  if ((flags & 2U) != 0 && (isSealed || (flags & 4U) == 0) &&
      InflatesWithZlib(stream, (flags & 1U) != 0, expected)) {
    FUZZ_CHECK(status == DecodeStatus::Ok && AreSameBits(values, expected), Describe(status));
  }
  if (status == DecodeStatus::Ok) {
    CheckEncoding(values, FiltersOfBits(flags));
    CheckEncoding(values, FiltersOfBits(flags >> 4));
  }
}
