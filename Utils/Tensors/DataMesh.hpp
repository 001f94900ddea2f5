// A DataMesh is a Mesh with one double at each of its points, in the mesh's point order. It is read
// and filled like a MyVector<double> whose length is fixed.
#pragma once

#include <concepts>
#include <cstddef>

#include "Utils/Containers/MyVector.hpp"
#include "Utils/Tensors/Mesh.hpp"

#pragma GCC visibility push(default)

class DataMesh {
 public:
  using value_type = double;

  /// A mesh without dimensions and the value 0 at its one point.
  DataMesh() : DataMesh(::Mesh()) {}
  /// Zero at every point.
  explicit DataMesh(const ::Mesh& mesh);
  /// The given values in point order. Fails unless there is one per point: "... values for a mesh
  /// of ... points".
  DataMesh(const ::Mesh& mesh, const MyVector<double>& values);

  const ::Mesh& Mesh() const { return mMesh; }
  int Dim() const { return mMesh.Dim(); }
  std::ptrdiff_t Size() const { return mValues.Size(); }
  const MyVector<int>& Extents() const { return mMesh.Extents(); }

  /// The value at an offset in point order, checked as MyVector checks an index.
  template <std::integral Index>
  double& operator[](Index offset) {
    return mValues[offset];
  }
  template <std::integral Index>
  double operator[](Index offset) const {
    return mValues[offset];
  }
  /// Size() doubles, one after the other; null for a mesh without points.
  double* data() { return mValues.data(); }
  const double* data() const { return mValues.data(); }
  double* begin() { return mValues.begin(); }
  double* end() { return mValues.end(); }
  const double* begin() const { return mValues.begin(); }
  const double* end() const { return mValues.end(); }

  /// They are equal if mesh and values are; a NaN equals nothing.
  friend bool operator==(const DataMesh& a, const DataMesh& b) {
    return a.mMesh == b.mMesh && a.mValues == b.mValues;
  }

 private:
  ::Mesh mMesh;
  MyVector<double> mValues;
};

#pragma GCC visibility pop
