#include "Utils/Containers/MyMap.hpp"

#include <gmock/gmock.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "Utils/ErrorHandling/TestSupport/ReportOf.hpp"
#include "Utils/Process/TestSupport/FailingNew.hpp"

namespace {

using testing::HasSubstr;

using Numbers = MyMap<std::string, int>;

std::string Text(const Numbers& map) {
  return (std::ostringstream() << map).str();
}

TEST(MyMapTest, KeepsTheOrderOfInsertionUntilSorted) {
  Numbers map;
  map.Insert("b", 1).Insert("a", 2).Insert("B", 3);
  EXPECT_EQ(Text(map), "b = 1\na = 2\nB = 3\n");
  const int* value = map.Find("a");
  map.Insert("A", map["b"]).Sort();
  EXPECT_EQ(map.Find("a"), value) << "values stay where they are";
  EXPECT_EQ(Text(map), "A = 1\nB = 3\na = 2\nb = 1\n");
  EXPECT_EQ(map["b"], 1);
  EXPECT_EQ(map.Find("c"), nullptr);
  EXPECT_THAT(ReportOf([&] { map["c"] = 1; }), HasSubstr("Key 'c' not found in a MyMap"));
  EXPECT_THAT(ReportOf([&] { map.Insert("a", 2); }),
              HasSubstr("Key 'a' inserted twice into a MyMap"));
}

TEST(MyMapTest, CopiesAreDeepAndMovesLeaveNothing) {
  Numbers a;
  a.Insert("x", 1).Insert("y", 2);
  Numbers b(a);
  b["x"] = 7;
  Numbers& same = b;
  b = same;
  b = std::move(same);
  EXPECT_EQ(Text(b), "x = 7\ny = 2\n");
  b = std::move(a);
  EXPECT_EQ(Text(b), "x = 1\ny = 2\n");
  const Numbers c(std::move(b));
  EXPECT_EQ(Text(c), "x = 1\ny = 2\n");
  EXPECT_EQ(Text(a) + Text(b), "");
  EXPECT_FALSE(a.KeyExists("x"));
}

// Throws when copied from a negative value.
struct Picky {
  explicit Picky(int value) : mValue(value < 0 ? throw std::range_error("") : value) { ++sAlive; }
  Picky(const Picky& other) : Picky(other.mValue) {}
  ~Picky() { --sAlive; }
  int mValue;
  static inline int sAlive = 0;
};

TEST(MyMapTest, WhatFailsLosesNothing) {
  const std::string key(100, 'k');
  {
    MyMap<std::string, Picky> map;
    for (int allocations = 0; map.empty(); ++allocations) {
      sAllocationsLeft = allocations;
      EXPECT_EQ(Picky::sAlive, 0);
      try {
        map.Insert(key, 1);
      } catch (const std::bad_alloc&) {
      }
      sAllocationsLeft = -1;
    }
    EXPECT_THROW(map.Insert("a", -1), std::range_error);
    map[key].mValue = -1;
    EXPECT_THROW((MyMap<std::string, Picky>(map)), std::range_error);
    EXPECT_EQ(MyAllocatorProfiler::NumBytesAllocated, map.size() * sizeof(Picky));
  }
  EXPECT_EQ(MyAllocatorProfiler::NumBytesAllocated, 0u);
}

// A value whose destruction fails has all maps written, also the one that is being cleared.
TEST(MyMapTest, ShowsWholeEntriesOnlyWhileItIsCleared) {
  struct Observer {
    ~Observer() {
      for (const auto& [key, value] : mMap) {
        EXPECT_NE(&value, this);
      }
    }
    const MyMap<int, Observer>& mMap;
  };
  MyMap<int, Observer> map;
  map.Insert(1, map).Insert(2, map).clear();
  EXPECT_FALSE(map.KeyExists(1));
}

}  // namespace
