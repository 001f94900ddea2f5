// Tensor<T> is a tensor whose every independent component is a T, used as Tensor<DataMesh>. The
// components stand in component-number order (see TensorIndexTable).
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "Utils/Containers/MyVector.hpp"
#include "Utils/ErrorHandling/RequireFail.hpp"
#include "Utils/Tensors/TensorIndexTable.hpp"

#pragma GCC visibility push(default)

template <class T>
class Tensor {
 public:
  /// No structure and no components; to be assigned to.
  Tensor() = default;
  /// Every component is made from `each`: for DataMesh, the mesh on which they all lie. The tensor
  /// shares the structure. Fails on a null pointer: "A tensor needs a structure".
  template <class Each>
  Tensor(std::shared_ptr<const TensorStructure> structure, const Each& each)
      : mpStructure(std::move(structure)) {
    VEXA_REQUIRE(mpStructure != nullptr, "A tensor needs a structure");
    mComponents.assign(MV::Size(static_cast<std::uint64_t>(mpStructure->NumberOfComponents())),
                       T(each));
  }
  /// Takes the calling thread's shared table for that structure.
  template <class Each>
  Tensor(const TensorStructure& structure, const Each& each)
      : Tensor(FindTensorIndexTable(structure.Dim(), structure.Symmetry()), each) {}

  /// Fails for a tensor made by the default constructor: "The tensor has no structure".
  const TensorStructure& Structure() const {
    VEXA_REQUIRE(mpStructure != nullptr, "The tensor has no structure");
    return *mpStructure;
  }
  /// The number of components.
  std::ptrdiff_t Size() const { return mComponents.Size(); }

  /// A component by its number, checked as MyVector checks an index.
  template <std::integral Index>
  T& operator[](Index component) {
    return mComponents[component];
  }
  template <std::integral Index>
  const T& operator[](Index component) const {
    return mComponents[component];
  }
  /// A component by its indices; fails unless they are valid.
  T& operator()(const MyVector<int>& indices) { return mComponents[Structure().Index(indices)]; }
  const T& operator()(const MyVector<int>& indices) const {
    return mComponents[Structure().Index(indices)];
  }

  T* begin() { return mComponents.begin(); }
  T* end() { return mComponents.end(); }
  const T* begin() const { return mComponents.begin(); }
  const T* end() const { return mComponents.end(); }

 private:
  std::shared_ptr<const TensorStructure> mpStructure;
  MyVector<T> mComponents;
};

#pragma GCC visibility pop
