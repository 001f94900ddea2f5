// The input is a byte of flags, two bytes that give the number of values, and the stored bytes of a
// chunk. The flags are bits: 1 shuffle, 2 deflate, 4 Fletcher-32, 8 the right checksum is appended.
#include "Tests/Fuzz/ChunkFuzz.hpp"
#include "Utils/ChunkCodec/Fletcher32.hpp"

void Fuzz::Target(std::string_view input) {
  constexpr std::size_t header = 3;
  constexpr std::size_t mostValues = 4096;
  if (input.size() < header) {
    return;
  }
  const Flags flags(input[0]);
  const auto byteAt = [input](int i) { return static_cast<unsigned char>(input[i]); };
  Values values((byteAt(1) + 256U * byteAt(2)) % (mostValues + 1));

  const auto stream = std::as_bytes(std::span(input.substr(header)));
  std::vector<std::byte> stored(stream.begin(), stream.end());
  if (flags.mFletcher32 && flags.mIsSealed) {
    ChunkCodec::AppendFletcher32(stored);
  }
  stored.shrink_to_fit();

  const ChunkCodec::DecodeStatus status = DecodeChunk(stored, flags.Filters(), values);
  const bool isOk = status == ChunkCodec::DecodeStatus::Ok;
  // Whatever zlib inflates, HDF5 reads, and so must we.
  Values expected(values.size());
  std::size_t used = 0;
  if (flags.mDeflate && (flags.mIsSealed || !flags.mFletcher32) &&
      InflatesWithZlib(stream, flags.mShuffle, expected, used)) {
    FUZZ_CHECK(isOk && AreSameBits(values, expected), Describe(status));
  }
  if (isOk) {
    CheckedEncoding(values, flags);
  }
}
