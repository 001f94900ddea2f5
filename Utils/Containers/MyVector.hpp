// MyVector<T> is the system's array: its storage holds exactly Size() elements, without slack, and
// changes size only by discarding its contents. A vector that grows is gathered in a std::vector
// and assigned once.
#pragma once

#include <algorithm>
#include <cassert>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <new>
#include <ostream>
#include <type_traits>
#include <utility>
#include <vector>

#include "Utils/Containers/MyAllocatorProfiler.hpp"

#pragma GCC visibility push(default)

namespace MV {
namespace internal {

/// An element count, as opposed to an element.
struct size_helper {
  explicit size_helper(std::uint64_t n) : mSize(n) {}
  std::uint64_t mSize;
};

/// A sequence given by its first iterator and its length. Elements are constructed from *it in
/// place, so an iterator that makes its elements on the fly can fill a vector of a type that can
/// be neither copied nor moved.
template <class It>
struct seq_helper {
  seq_helper(It begin, std::uint64_t n) : mBegin(begin), mSize(n) {}
  It mBegin;
  std::uint64_t mSize;
};

}  // namespace internal

/// Selects the fill with a value where the value could be taken for something else.
struct FillTag_nonconst {};

inline internal::size_helper Size(std::uint64_t n) {
  return internal::size_helper(n);
}

template <class It>
internal::seq_helper<It> Sequence(It begin, std::uint64_t n) {
  return {begin, n};
}

template <class Range>
auto Sequence(const Range& range) {
  return internal::seq_helper(std::begin(range), static_cast<std::uint64_t>(std::size(range)));
}

}  // namespace MV

template <class T>
class MyVector {
 public:
  using value_type = T;

  MyVector() = default;
  /// Makes n elements that are value-initialised: numbers are zero.
  explicit MyVector(MV::internal::size_helper n) { assign(n); }
  MyVector(MV::internal::size_helper n, const T& fill) { assign(n, fill); }
  MyVector(MV::FillTag_nonconst tag, MV::internal::size_helper n, T fill) { assign(tag, n, fill); }
  template <class Inner = T>
  requires std::constructible_from<Inner, MV::internal::size_helper> MyVector(
      MV::internal::size_helper n, MV::internal::size_helper inner) {
    assign(n, inner);
  }
  template <class It>
  explicit MyVector(MV::internal::seq_helper<It> sequence) {
    assign(sequence);
  }
  MyVector(std::initializer_list<T> elements) { assign(MV::Sequence(elements)); }
  explicit MyVector(const std::vector<T>& elements) { assign(MV::Sequence(elements)); }

  MyVector(const MyVector& other) { assign(MV::Sequence(other)); }
  MyVector(MyVector&& other) noexcept { swap(other); }
  MyVector& operator=(const MyVector& other) {
    if (this != &other) {
      assign(MV::Sequence(other));
    }
    return *this;
  }
  MyVector& operator=(MyVector&& other) noexcept {
    if (this != &other) {
      Clear();
      swap(other);
    }
    return *this;
  }
  virtual ~MyVector() { Clear(); }

  void swap(MyVector& other) noexcept {
    std::swap(mSize, other.mSize);
    std::swap(mpData, other.mpData);
  }

  /// The size is signed here, so that it compares with the signed counts that the callers use.
  std::ptrdiff_t Size() const { return static_cast<std::ptrdiff_t>(mSize); }
  std::uint64_t size() const { return mSize; }
  bool empty() const { return mSize == 0; }

  /// The i-th element, from 0. The index is checked in builds without NDEBUG only.
  template <std::integral Index>
  T& operator[](Index i) {
    assert(static_cast<std::uint64_t>(i) < mSize);
    return mpData[i];
  }
  template <std::integral Index>
  const T& operator[](Index i) const {
    assert(static_cast<std::uint64_t>(i) < mSize);
    return mpData[i];
  }

  /// The pointer is null while the vector is empty.
  T* data() { return mpData; }
  const T* data() const { return mpData; }
  T* begin() { return mpData; }
  T* end() { return mpData + mSize; }
  const T* begin() const { return mpData; }
  const T* end() const { return mpData + mSize; }

  /// The assignments destroy the old elements before the first new one is constructed, and keep
  /// the storage when the count stays the same; what is assigned must not stand in the vector. If
  /// constructing an element throws, the vector is left empty.
  void assign(MV::internal::size_helper n) {
    Fill(n.mSize, [](T* element, std::uint64_t) { ::new (element) T(); });
  }
  void assign(MV::internal::size_helper n, const T& fill) {
    Fill(n.mSize, [&fill](T* element, std::uint64_t) { ::new (element) T(fill); });
  }
  void assign(MV::FillTag_nonconst, MV::internal::size_helper n, T fill) {
    assign(n, static_cast<const T&>(fill));
  }
  /// Makes n inner vectors of the given size each, filled with zeros.
  template <class Inner = T>
  requires std::constructible_from<Inner, MV::internal::size_helper>
  void assign(MV::internal::size_helper n, MV::internal::size_helper inner) {
    Fill(n.mSize, [inner](T* element, std::uint64_t) { ::new (element) T(inner); });
  }
  template <class It>
  void assign(MV::internal::seq_helper<It> sequence) {
    It it = sequence.mBegin;
    Fill(sequence.mSize, [&it](T* element, std::uint64_t) {
      ::new (element) T(*it);
      ++it;
    });
  }

  void Clear() { reallocate(0); }

  /// Destroys all elements and makes the storage exactly n elements long; the same n keeps it. The
  /// elements are then unconstructed: whoever calls constructs each of them before anything else
  /// is done with the vector. The assignments are built on it; prefer them.
  void reallocate(std::uint64_t n) {
    std::destroy_n(mpData, mSize);
    if (n == mSize) {
      return;
    }
    if (mSize != 0) {
      MyAllocatorProfiler::Release(mpData, mSize);
      mpData = nullptr;
      mSize = 0;
    }
    if (n > 0) {
      mpData = MyAllocatorProfiler::Allocate<T>(n);
      mSize = n;
    }
  }

  friend bool operator==(const MyVector& a, const MyVector& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
  }

  /// Writes "(a,b,c)".
  friend std::ostream& operator<<(std::ostream& os, const MyVector& vector) {
    os << '(';
    for (std::uint64_t i = 0; i < vector.mSize; ++i) {
      os << (i == 0 ? "" : ",") << vector.mpData[i];
    }
    return os << ')';
  }

 private:
  template <class Construct>
  void Fill(std::uint64_t n, Construct construct) {
    reallocate(n);
    std::uint64_t constructed = 0;
    try {
      for (; constructed < n; ++constructed) {
        construct(mpData + constructed, constructed);
      }
    } catch (...) {
      std::destroy_n(mpData, constructed);
      MyAllocatorProfiler::Release(mpData, mSize);
      mpData = nullptr;
      mSize = 0;
      throw;
    }
  }

  std::uint64_t mSize = 0;
  T* mpData = nullptr;  // exactly mSize elements
};

#pragma GCC visibility pop
