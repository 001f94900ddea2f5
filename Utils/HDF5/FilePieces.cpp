#include "Utils/HDF5/FilePieces.hpp"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace Vexa_H5 {

void FilePieces::Clear() {
  mPieces.clear();
  mSize = 0;
}

FilePieces::Bytes* FilePieces::Find(haddr_t address) {
  const auto piece = mPieces.find(address);
  return piece == mPieces.end() ? nullptr : &piece->second;
}

void FilePieces::Write(haddr_t address, const unsigned char* bytes, std::size_t size) {
  // What follows a piece becomes a part of it, for much is written in ascending order.
  auto piece = mPieces.upper_bound(address);
  if (piece != mPieces.begin() && End(*std::prev(piece)) >= address) {
    --piece;
  } else {
    piece = mPieces.emplace_hint(piece, address, Bytes{});
  }
  Bytes& into = piece->second;
  const std::size_t offset = address - piece->first;
  mSize -= into.size();
  into.resize(std::max(into.size(), offset + size));
  std::memcpy(into.data() + offset, bytes, size);
  for (auto next = std::next(piece); next != mPieces.end() && next->first < End(*piece);) {
    const std::size_t known = End(*piece) - next->first;
    if (known < next->second.size()) {
      into.insert(into.end(), next->second.begin() + static_cast<std::ptrdiff_t>(known),
                  next->second.end());
    }
    mSize -= next->second.size();
    next = mPieces.erase(next);
  }
  mSize += into.size();
}

bool FilePieces::Overlaps(haddr_t address, std::size_t size) const {
  const auto piece = mPieces.lower_bound(address + size);
  return piece != mPieces.begin() && End(*std::prev(piece)) > address;
}

void FilePieces::Overlay(haddr_t address, unsigned char* bytes, std::size_t size) const {
  auto piece = mPieces.upper_bound(address);
  if (piece != mPieces.begin()) {
    --piece;
  }
  for (; piece != mPieces.end() && piece->first < address + size; ++piece) {
    const haddr_t first = std::max(piece->first, address);
    const haddr_t last = std::min<haddr_t>(End(*piece), address + size);
    if (first < last) {
      std::memcpy(bytes + (first - address), piece->second.data() + (first - piece->first),
                  last - first);
    }
  }
}

void FilePieces::Cut(haddr_t end) {
  TakeFrom(end);
  if (!mPieces.empty() && End(*mPieces.rbegin()) > end) {
    auto& [address, bytes] = *mPieces.rbegin();
    mSize -= address + bytes.size() - end;
    bytes.resize(end - address);
  }
}

FilePieces FilePieces::TakeFrom(haddr_t begin) {
  FilePieces taken;
  for (auto piece = mPieces.lower_bound(begin); piece != mPieces.end();) {
    taken.mSize += piece->second.size();
    mSize -= piece->second.size();
    taken.mPieces.insert(mPieces.extract(piece++));
  }
  return taken;
}

bool FilePieces::Gather(const std::function<bool(haddr_t, Bytes&)>& read) {
  for (auto first = mPieces.begin(); first != mPieces.end();) {
    auto last = first;
    auto next = std::next(first);
    std::size_t size = first->second.size();
    while (next != mPieces.end() && next->first <= End(*last) + sBytesWorthAWrite) {
      size += next->second.size();
      last = next++;
    }
    if (last != first) {
      Bytes whole(End(*last) - first->first);
      const bool hasGaps = size < whole.size();
      if (hasGaps && !read(first->first, whole)) {
        return false;
      }
      Overlay(first->first, whole.data(), whole.size());
      mSize += whole.size() - size;
      first->second = std::move(whole);
      mPieces.erase(std::next(first), next);
    }
    first = next;
  }
  return true;
}

}  // namespace Vexa_H5
