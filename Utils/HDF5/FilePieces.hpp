#pragma once

#include <hdf5.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace Vexa_H5 {

/// Pieces of a file that are held in memory, by their address in the file. They do not overlap.
class FilePieces {
 public:
  using Bytes = std::vector<unsigned char>;

  /// Two pieces that are no further apart are best written together, with what is between them: the
  /// system takes longer for a second write than for these bytes.
  static constexpr haddr_t sBytesWorthAWrite = 8192;

  bool IsEmpty() const { return mPieces.empty(); }
  /// Returns how many bytes all pieces have together.
  std::uint64_t Size() const { return mSize; }
  const std::map<haddr_t, Bytes>& All() const { return mPieces; }
  /// Returns the bytes of the piece that begins there, or null if none does.
  Bytes* Find(haddr_t address);
  void Clear();

  /// Puts these bytes over what is there.
  void Write(haddr_t address, const unsigned char* bytes, std::size_t size);
  bool Overlaps(haddr_t address, std::size_t size) const;
  /// Puts what is held of [address, address + size) over these bytes.
  void Overlay(haddr_t address, unsigned char* bytes, std::size_t size) const;

  /// Forgets what lies at `end` and beyond.
  void Cut(haddr_t end);
  /// Takes the pieces that begin at `begin` or beyond out of this.
  FilePieces TakeFrom(haddr_t begin);

  /// Joins pieces that are near each other. `read` gets what the file has at an address; if it
  /// returns false, so does this.
  bool Gather(const std::function<bool(haddr_t address, Bytes& bytes)>& read);

 private:
  static haddr_t End(const std::pair<const haddr_t, Bytes>& piece) {
    return piece.first + piece.second.size();
  }

  std::map<haddr_t, Bytes> mPieces;
  std::uint64_t mSize = 0;
};

}  // namespace Vexa_H5
