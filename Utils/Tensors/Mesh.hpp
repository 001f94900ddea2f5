// The extents of a multidimensional grid, and the order of its points: a point with grid indices
// (i0, i1, ...) has the offset i0 + e0*(i1 + e1*(i2 + ...)), so the first index varies fastest.
#pragma once

#include <cstddef>

#include "Utils/Containers/MyVector.hpp"

#pragma GCC visibility push(default)

/// Extents are often read from a file, so the constructor checks them before anything is made of
/// them. A mesh holds no values: making one is cheap, whatever its number of points.
class Mesh {
 public:
  /// The most dimensions that a mesh can have: as many as HDF5 gives a dataset.
  static constexpr int MaxDim = 32;

  /// A mesh without dimensions. As an empty product says, it has one point.
  Mesh() = default;
  /// One extent per dimension, none negative; an extent of 0 makes a mesh without points. Fails
  ///   with more than MaxDim extents: "A mesh has at most 32 dimensions, got ..."
  ///   on a negative one:            "Extents of a mesh must not be negative, got (...)"
  ///   when the values of all points would not fit in memory addresses:
  ///                                 "A mesh of extents (...) has too many points"
  explicit Mesh(const MyVector<int>& extents);

  int Dim() const { return static_cast<int>(mExtents.Size()); }
  /// The number of points.
  std::ptrdiff_t Size() const { return mSize; }
  const MyVector<int>& Extents() const { return mExtents; }

  friend bool operator==(const Mesh& a, const Mesh& b) { return a.mExtents == b.mExtents; }

 private:
  MyVector<int> mExtents;
  std::ptrdiff_t mSize = 1;
};

/// The grid indices of the point at an offset. Fails if the mesh has no such point: "Offset ... is
/// not within a mesh of extents (...)".
MyVector<int> GetMeshIndexFromOffset(std::ptrdiff_t offset, const MyVector<int>& extents);

#pragma GCC visibility pop
