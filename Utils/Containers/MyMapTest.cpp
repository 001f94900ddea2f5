#include "Utils/Containers/MyMap.hpp"

#include <gmock/gmock.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "Utils/ErrorHandling/ReportOf.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

using Numbers = MyMap<std::string, int>;

std::string Text(const Numbers& map) {
  std::ostringstream text;
  text << map;
  return text.str();
}

// Throws when constructed from a negative value, also by a copy of one that became negative.
struct Picky {
  explicit Picky(int value) : mValue(Checked(value)) {}
  Picky(const Picky& other) : mValue(Checked(other.mValue)) {}
  Picky& operator=(const Picky&) = delete;
  static int Checked(int value) {
    return value < 0 ? throw std::invalid_argument("negative") : value;
  }
  int mValue;
};

TEST(MyMapTest, KeepsTheOrderOfInsertionUntilSorted) {
  Numbers map;
  map.Insert("b", 1).Insert("a", 2).Insert("B", 3);
  EXPECT_THAT(map.Keys(), ElementsAre("b", "a", "B"));
  EXPECT_EQ(Text(map), "b = 1\na = 2\nB = 3\n");
  const int* value = map.Find("a");
  map.Sort();
  EXPECT_EQ(Text(map), "B = 3\na = 2\nb = 1\n");
  EXPECT_EQ(map.Find("a"), value) << "values stay where they are";
  map.Insert("A", 4);
  EXPECT_EQ(map["A"], 4);
  EXPECT_EQ(map["b"], 1);
  map.Sort();
  EXPECT_EQ(Text(map), "A = 4\nB = 3\na = 2\nb = 1\n");
}

TEST(MyMapTest, Lookup) {
  Numbers map;
  map.Insert("a", 1);
  map["a"] = 5;
  EXPECT_EQ(std::as_const(map)["a"], 5);
  EXPECT_TRUE(map.KeyExists("a"));
  EXPECT_FALSE(map.KeyExists("A"));
  EXPECT_EQ(map.Find("A"), nullptr);
  EXPECT_THAT(ReportOf([&] { map["A"] = 1; }), HasSubstr("Key 'A' not found in a MyMap"));
  EXPECT_THAT(ReportOf([&] { map.Insert("a", 2); }),
              HasSubstr("Key 'a' inserted twice into a MyMap"));
  EXPECT_EQ(Text(map), "a = 5\n");
}

TEST(MyMapTest, CopiesAreDeepAndMovesLeaveNothing) {
  Numbers a;
  a.Insert("x", 1).Insert("y", 2);
  Numbers b(a);
  b["x"] = 7;
  b = *&b;
  EXPECT_EQ(Text(b), "x = 7\ny = 2\n");
  EXPECT_EQ(a["x"], 1);
  b = std::move(a);
  EXPECT_EQ(Text(b), "x = 1\ny = 2\n");
  EXPECT_EQ(Text(a), "");
  EXPECT_FALSE(a.KeyExists("x"));
}

TEST(MyMapTest, ExceptionOfAValueLosesNothing) {
  MyAllocatorProfiler::ProfilingEnabled = true;
  MyAllocatorProfiler::NumBytesAllocated = 0;
  {
    MyMap<std::string, Picky> map;
    map.Insert("a", 1);
    EXPECT_THROW(map.Insert("b", -1), std::invalid_argument);
    EXPECT_EQ(map.Size(), 1);
    EXPECT_FALSE(map.KeyExists("b"));
    map.Insert("b", 2);
    EXPECT_EQ(map["b"].mValue, 2);
    map["b"].mValue = -1;
    using Map = MyMap<std::string, Picky>;
    EXPECT_THROW(Map{map}, std::invalid_argument);
    EXPECT_EQ(MyAllocatorProfiler::NumBytesAllocated, 2 * sizeof(Picky));
  }
  EXPECT_EQ(MyAllocatorProfiler::NumBytesAllocated, 0u);
  MyAllocatorProfiler::ProfilingEnabled = false;
}

// A value whose destruction fails has all maps written, also the one that is being cleared.
TEST(MyMapTest, ShowsWholeEntriesOnlyWhileItIsCleared) {
  struct Observer {
    Observer(const MyMap<int, Observer>& map, int& seen) : mMap(map), mSeen(seen) {}
    ~Observer() {
      EXPECT_EQ(mMap.Keys().size(), mMap.size());
      for (const auto& [key, value] : mMap) {
        EXPECT_NE(&value, this);
        ++mSeen;
      }
    }
    const MyMap<int, Observer>& mMap;
    int& mSeen;
  };
  int seen = 0;
  MyMap<int, Observer> map;
  map.Insert(1, map, seen).Insert(2, map, seen).Insert(3, map, seen);
  map.clear();
  EXPECT_EQ(seen, 2 + 1 + 0);
  EXPECT_FALSE(map.KeyExists(1));
}

}  // namespace
