// MyMap<K,V> keeps its entries in the order in which they were inserted and finds them by key. It
// owns its values, each in an allocation of its own, so a value's address never changes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <ostream>
#include <utility>
#include <vector>

#include "Utils/Containers/MyAllocatorProfiler.hpp"
#include "Utils/ErrorHandling/RequireFail.hpp"

template <class K, class V>
class MyMap {
 public:
  MyMap() = default;
  // It delegates, so that an exception finds an object whose destructor frees the values.
  MyMap(const MyMap& other) : MyMap() { *this = other; }
  MyMap(MyMap&& other) noexcept { swap(other); }
  MyMap& operator=(const MyMap& other) {
    if (this != &other) {
      clear();
      for (const auto& [key, value] : other) {
        Insert(key, value);
      }
    }
    return *this;
  }
  MyMap& operator=(MyMap&& other) noexcept {
    if (this != &other) {
      clear();
      swap(other);
    }
    return *this;
  }
  ~MyMap() { clear(); }

  void swap(MyMap& other) noexcept {
    mKeys.swap(other.mKeys);
    mValues.swap(other.mValues);
    mIndex.swap(other.mIndex);
  }

  /// Constructs a value from `args` and appends it under `key`; fails if the key is there already
  /// ("Key '...' inserted twice into a MyMap"). Inserts chain.
  template <class... Args>
  MyMap& Insert(const K& key, Args&&... args) {
    VEXA_REQUIRE(!KeyExists(key), "Key '" << key << "' inserted twice into a MyMap");
    // The value is made first: the arguments may stand in this very map, where a growing list would
    // move them.
    V* const value = MyAllocatorProfiler::Allocate<V>(1);
    try {
      ::new (value) V(std::forward<Args>(args)...);
    } catch (...) {
      MyAllocatorProfiler::Release(value, 1);
      throw;
    }
    try {
      K ownKey(key);
      mValues.reserve(GrownCapacity(mValues));
      mKeys.reserve(GrownCapacity(mKeys));
      mIndex.emplace(ownKey, mValues.size());
      mKeys.push_back(std::move(ownKey));
    } catch (...) {
      value->~V();
      MyAllocatorProfiler::Release(value, 1);
      throw;
    }
    mValues.push_back(value);
    return *this;
  }

  bool KeyExists(const K& key) const { return mIndex.contains(key); }
  /// The value stored under the key, or null.
  V* Find(const K& key) { return const_cast<V*>(std::as_const(*this).Find(key)); }
  const V* Find(const K& key) const {
    const auto it = mIndex.find(key);
    return it == mIndex.end() ? nullptr : mValues[it->second];
  }
  /// The value stored under the key; fails if there is none.
  V& operator[](const K& key) { return const_cast<V&>(std::as_const(*this)[key]); }
  const V& operator[](const K& key) const {
    const V* value = Find(key);
    VEXA_REQUIRE(value != nullptr, "Key '" << key << "' not found in a MyMap");
    return *value;
  }

  std::ptrdiff_t Size() const { return static_cast<std::ptrdiff_t>(mKeys.size()); }
  std::uint64_t size() const { return mKeys.size(); }
  bool empty() const { return mKeys.empty(); }

  /// Keys in storage order.
  const std::vector<K>& Keys() const { return mKeys; }

  /// Walks the entries in storage order: for (auto [key, value] : map).
  template <class Map, class Value>
  class Iterator {
   public:
    Iterator(Map& map, std::size_t position) : mpMap(&map), mPosition(position) {}
    std::pair<const K&, Value&> operator*() const {
      return {mpMap->mKeys[mPosition], *mpMap->mValues[mPosition]};
    }
    Iterator& operator++() {
      ++mPosition;
      return *this;
    }
    bool operator==(const Iterator& other) const { return mPosition == other.mPosition; }

   private:
    Map* mpMap;
    std::size_t mPosition;
  };
  auto begin() { return Iterator<MyMap, V>(*this, 0); }
  auto end() { return Iterator<MyMap, V>(*this, mKeys.size()); }
  auto begin() const { return Iterator<const MyMap, const V>(*this, 0); }
  auto end() const { return Iterator<const MyMap, const V>(*this, mKeys.size()); }

  /// Reorders the entries into ascending key order; values keep their addresses.
  void Sort() {
    if (std::is_sorted(mKeys.begin(), mKeys.end())) {
      return;
    }
    // The index is ordered by key already.
    std::vector<K> keys;
    std::vector<V*> values;
    keys.reserve(mKeys.size());
    values.reserve(mKeys.size());
    for (auto& [key, position] : mIndex) {
      keys.push_back(std::move(mKeys[position]));
      values.push_back(mValues[position]);
      position = values.size() - 1;
    }
    mKeys.swap(keys);
    mValues.swap(values);
  }

  /// Takes out one entry after the other from the end, so that whoever walks the map while a value
  /// is being destroyed, as a report does that has everything written, finds only whole ones.
  void clear() {
    mIndex.clear();
    while (!mValues.empty()) {
      V* value = mValues.back();
      mValues.pop_back();
      mKeys.pop_back();
      std::destroy_at(value);
      MyAllocatorProfiler::Release(value, 1);
    }
  }

  friend std::ostream& operator<<(std::ostream& os, const MyMap& map) {
    for (const auto& [key, value] : map) {
      os << key << " = " << value << "\n";
    }
    return os;
  }

 private:
  template <class Vector>
  static std::size_t GrownCapacity(const Vector& vector) {
    return vector.size() < vector.capacity() ? vector.capacity()
                                             : std::max<std::size_t>(4, 2 * vector.size());
  }

  std::vector<K> mKeys;  // insertion order
  std::vector<V*> mValues;
  std::map<K, std::uint64_t> mIndex;  // key to position in both
};
