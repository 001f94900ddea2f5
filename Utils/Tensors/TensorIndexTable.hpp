// The shape of a tensor: the range and the number of its indices, and which of them may be
// exchanged. It numbers the independent components and finds the number for any list of indices.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

#include "Utils/Containers/MyVector.hpp"

#pragma GCC visibility push(default)

/// A table is immutable once built, so tensors of the same shape share one; see
/// FindTensorIndexTable().
///
/// The symmetry string has one character per index slot; slots with the same character are
/// symmetric with each other, whatever the character is. An index list in canonical form has the
/// values of every group of symmetric slots in non-increasing order; there is one component per
/// canonical list. Components are numbered from 0 in the order of the flat index, the first index
/// varying fastest: dimension 3, symmetry "11" gives (0,0) (1,0) (2,0) (1,1) (2,1) (2,2).
class TensorIndexTable {
 public:
  /// Shapes come from files: larger ones are taken for damage, not for tensors.
  static constexpr int MaxRank = 20;
  static constexpr int MaxFlatEntries = 1 << 20;
  /// A file can name a new shape in a few bytes, so the component numbers of larger shapes than
  /// this (three dimensions and five indices have 243) are worked out at every call of Index().
  static constexpr int sMaxStoredEntries = 1 << 8;

  /// Each of the symm.size() indices ranges over 0 ... dim-1. A scalar (empty symmetry) has no
  /// index, so any dimension will do. Fails, before anything is allocated,
  ///   with too many indices:        "A tensor has at most 20 indices, got ..."
  ///   on a dimension below 1:       "The dimension of a tensor must be positive, got ..."
  ///   if dim^rank is beyond MaxFlatEntries:
  ///                                 "A tensor of dimension ... and rank ... has too many
  ///                                 components"
  TensorIndexTable(int dim, const std::string& symm);

  int Dim() const { return mDim; }
  int Rank() const { return static_cast<int>(mSymm.size()); }
  const std::string& Symmetry() const { return mSymm; }
  /// The number of independent components; 1 for a scalar.
  int NumberOfComponents() const { return mNumberOfComponents; }

  /// The component number of an index list. Fails unless the list is valid: "Indices (...) are not
  /// valid for a tensor of dimension ... and rank ...".
  int Index(const MyVector<int>& indices) const;
  /// Whether the list has one entry per index slot, each within 0 ... Dim()-1.
  bool IsIndexValid(const MyVector<int>& indices) const;

  /// The canonical form of an index list under a symmetry. Fails unless both are equally long:
  /// "... indices for a symmetry of ... slots".
  static void ApplySymmToIndexList(const std::string& symm, const MyVector<int>& in,
                                   MyVector<int>& out);

  /// Writes "dimension 3, symmetry '11', 6 components".
  void Output(std::ostream& os) const;

  /// Structures are equal when dimension and symmetry string are, character for character: "11"
  /// and "22" describe the same symmetry and are still different.
  friend bool operator==(const TensorIndexTable& a, const TensorIndexTable& b) {
    return a.mDim == b.mDim && a.mSymm == b.mSymm;
  }
  friend std::ostream& operator<<(std::ostream& os, const TensorIndexTable& table) {
    table.Output(os);
    return os;
  }

 private:
  int ComponentOf(const MyVector<int>& indices) const;

  int mDim;
  std::string mSymm;
  MyVector<int> mExtents;     // mDim for every index
  MyVector<int> mComponents;  // flat index to component number; empty if there are too many
  int mNumberOfComponents = 0;
};

/// The name under which a table is passed as a tensor's shape.
using TensorStructure = TensorIndexTable;

/// Flat index of an index list, the first index varying fastest; 0 for an empty list. Both have
/// equal length, and each index is within its extent; neither is checked.
std::ptrdiff_t ComputeIndex(const MyVector<int>& indices, const MyVector<int>& extents);
/// Returns the index list that has this flat index. Fails if there is none.
MyVector<int> ComputeIndex(std::ptrdiff_t flat, const MyVector<int>& extents);

/// The tables of one thread. A copy has tables of its own, so that it can be handed to another
/// thread.
class TensorIndexTableHolder {
 public:
  TensorIndexTableHolder() = default;
  TensorIndexTableHolder(const TensorIndexTableHolder& other);
  TensorIndexTableHolder& operator=(TensorIndexTableHolder other) noexcept {
    mTables.swap(other.mTables);
    return *this;
  }

  /// The table for (dim, symm), built unless there is one; fails as its constructor does.
  std::shared_ptr<const TensorIndexTable> Find(int dim, const std::string& symm);

 private:
  std::map<std::pair<int, std::string>, std::shared_ptr<const TensorIndexTable>> mTables;
};

/// The calling thread's table for (dim, symm): one and the same on every call. Whoever keeps the
/// pointer keeps the table, also beyond the end of the thread.
std::shared_ptr<const TensorIndexTable> FindTensorIndexTable(int dim, const std::string& symm);

#pragma GCC visibility pop
