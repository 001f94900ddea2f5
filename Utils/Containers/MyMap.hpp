// MyMap<K,V> keeps its entries in the order in which they were inserted and finds them by key. It
// owns its values, each in an allocation of its own, so a value's address never changes.
#pragma once

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

#pragma GCC visibility push(default)

template <class K, class V>
class MyMap {
  struct DestroyAndRelease {
    void operator()(V* value) const {
      std::destroy_at(value);
      MyAllocatorProfiler::Release(value, 1);
    }
  };
  using Value = std::unique_ptr<V, DestroyAndRelease>;
  using Entry = std::pair<const K, Value>;

 public:
  MyMap() = default;
  // It delegates, so that an exception finds an object whose destructor frees the values.
  MyMap(const MyMap& other) : MyMap() {
    for (const auto& [key, value] : other) {
      Insert(key, value);
    }
  }
  MyMap(MyMap&& other) noexcept { swap(other); }
  MyMap& operator=(MyMap other) noexcept {
    swap(other);
    return *this;
  }
  ~MyMap() { clear(); }

  void swap(MyMap& other) noexcept {
    mEntries.swap(other.mEntries);
    mOrder.swap(other.mOrder);
  }

  /// Constructs a value from `args` and appends it under `key`; fails if the key is there already
  /// ("Key '...' inserted twice into a MyMap"). Inserts chain.
  template <class... Args>
  MyMap& Insert(const K& key, Args&&... args) {
    VEXA_REQUIRE(!KeyExists(key), "Key '" << key << "' inserted twice into a MyMap");
    const auto entry = mEntries.emplace(key, MakeValue(std::forward<Args>(args)...)).first;
    try {
      mOrder.push_back(&*entry);
    } catch (...) {
      mEntries.erase(entry);
      throw;
    }
    return *this;
  }

  bool KeyExists(const K& key) const { return Find(key) != nullptr; }
  /// The value stored under the key, or null.
  V* Find(const K& key) { return const_cast<V*>(std::as_const(*this).Find(key)); }
  const V* Find(const K& key) const {
    const auto it = mEntries.find(key);
    return it == mEntries.end() ? nullptr : it->second.get();
  }
  /// The value stored under the key; fails if there is none.
  V& operator[](const K& key) { return const_cast<V&>(std::as_const(*this)[key]); }
  const V& operator[](const K& key) const {
    const V* value = Find(key);
    VEXA_REQUIRE(value != nullptr, "Key '" << key << "' not found in a MyMap");
    return *value;
  }

  std::ptrdiff_t Size() const { return static_cast<std::ptrdiff_t>(mOrder.size()); }
  std::uint64_t size() const { return mOrder.size(); }
  bool empty() const { return mOrder.empty(); }

  /// Walks the entries in storage order: for (auto [key, value] : map).
  template <class ValueType>
  class Iterator {
   public:
    explicit Iterator(typename std::vector<Entry*>::const_iterator position)
        : mPosition(position) {}
    std::pair<const K&, ValueType&> operator*() const {
      return {(*mPosition)->first, *(*mPosition)->second};
    }
    Iterator& operator++() {
      ++mPosition;
      return *this;
    }
    bool operator==(const Iterator& other) const = default;

   private:
    typename std::vector<Entry*>::const_iterator mPosition;
  };
  auto begin() { return Iterator<V>(mOrder.begin()); }
  auto end() { return Iterator<V>(mOrder.end()); }
  auto begin() const { return Iterator<const V>(mOrder.begin()); }
  auto end() const { return Iterator<const V>(mOrder.end()); }

  /// Reorders the entries into ascending key order; values keep their addresses.
  void Sort() {
    mOrder.clear();
    for (Entry& entry : mEntries) {
      mOrder.push_back(&entry);
    }
  }

  /// Takes out one entry after the other from the end, so that whoever walks the map while a value
  /// is being destroyed, as a report does that has everything written, finds only whole ones.
  void clear() {
    while (!mOrder.empty()) {
      const Value last = std::move(mOrder.back()->second);
      mOrder.pop_back();
    }
    mEntries.clear();
  }

  friend std::ostream& operator<<(std::ostream& os, const MyMap& map) {
    for (const auto& [key, value] : map) {
      os << key << " = " << value << "\n";
    }
    return os;
  }

 private:
  template <class... Args>
  static Value MakeValue(Args&&... args) {
    V* const storage = MyAllocatorProfiler::Allocate<V>(1);
    try {
      return Value(::new (storage) V(std::forward<Args>(args)...));
    } catch (...) {
      MyAllocatorProfiler::Release(storage, 1);
      throw;
    }
  }

  std::map<K, Value> mEntries;
  std::vector<Entry*> mOrder;  // the entries as they were inserted
};

#pragma GCC visibility pop
