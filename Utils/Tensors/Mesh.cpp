#include "Utils/Tensors/Mesh.hpp"

#include <algorithm>
#include <limits>

#include "Utils/ErrorHandling/Require.hpp"

Mesh::Mesh(const MyVector<int>& extents) {
  REQUIRE(extents.Size() <= MaxDim,
          "A mesh has at most " << MaxDim << " dimensions, got " << extents.Size());
  REQUIRE(std::all_of(extents.begin(), extents.end(), [](int extent) { return extent >= 0; }),
          "Extents of a mesh must not be negative, got " << extents);
  if (std::find(extents.begin(), extents.end(), 0) != extents.end()) {
    mSize = 0;  // however large the other extents are
  } else {
    constexpr auto limit =
        std::numeric_limits<std::ptrdiff_t>::max() / static_cast<std::ptrdiff_t>(sizeof(double));
    for (const int extent : extents) {
      REQUIRE(mSize <= limit / extent, "A mesh of extents " << extents << " has too many points");
      mSize *= extent;
    }
  }
  mExtents = extents;
}

MyVector<int> GetMeshIndexFromOffset(std::ptrdiff_t offset, const MyVector<int>& extents) {
  REQUIRE(offset >= 0 && offset < Mesh(extents).Size(),
          "Offset " << offset << " is not within a mesh of extents " << extents);
  MyVector<int> indices(MV::Size(extents.size()));
  for (int k = 0; k < extents.Size(); ++k) {
    indices[k] = static_cast<int>(offset % extents[k]);
    offset /= extents[k];
  }
  return indices;
}
