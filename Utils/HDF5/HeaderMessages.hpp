// The messages in the header of an object, as they stand in the file (HDF5 File Format
// Specification 3.0, IV.A), read without the library.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "Utils/HDF5/LittleEndian.hpp"

namespace Vexa_H5 {

using FileBytes = std::span<const std::byte>;

/// Returns a number of some bytes. What lies beyond the end counts as zeros.
inline std::uint64_t NumberAt(FileBytes bytes, std::uint64_t at, std::size_t count) {
  const std::size_t known = std::min<std::size_t>(count, bytes.size() - std::min(at, bytes.size()));
  return known == 0 ? 0 : LittleEndian(bytes.data() + at, known);
}

inline FileBytes From(FileBytes bytes, std::uint64_t at) {
  return bytes.subspan(std::min<std::uint64_t>(at, bytes.size()));
}

inline bool BeginsWith(FileBytes bytes, std::string_view signature) {
  return bytes.size() >= signature.size() &&
         std::equal(signature.begin(), signature.end(),
                    reinterpret_cast<const char*>(bytes.data()));
}

/// Goes through the messages of one header after the other. All is lent.
struct HeaderMessages {
  using Read = std::function<std::vector<std::byte>(std::uint64_t address, std::uint64_t count)>;
  using Take = std::function<void(std::uint64_t type, FileBytes data)>;

  /// Hands each message of the header at this address to `take`, but for those that are shared, and
  /// ends silently where the header is damaged.
  void ForEach(std::uint64_t address, const Take& take) const;

  std::size_t mAddressBytes;
  std::size_t mSizeBytes;
  std::uint64_t mFileSize;
  Read mRead;  // so many bytes, or as many of them as the file has
};

}  // namespace Vexa_H5
