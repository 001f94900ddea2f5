#include "Utils/Containers/MyMap.hpp"

#include <gmock/gmock.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "Utils/ErrorHandling/ReportOf.hpp"

namespace {

using testing::HasSubstr;

using Numbers = MyMap<std::string, int>;

std::string Text(const Numbers& map) {
  std::ostringstream text;
  text << map;
  return text.str();
}

TEST(MyMapTest, KeepsTheOrderOfInsertionUntilSorted) {
  Numbers map;
  map.Insert("b", 1).Insert("a", 2).Insert("B", 3);
  EXPECT_EQ(Text(map), "b = 1\na = 2\nB = 3\n");
  const int* value = map.Find("a");
  map.Sort();
  EXPECT_EQ(Text(map), "B = 3\na = 2\nb = 1\n");
  EXPECT_EQ(map.Find("a"), value) << "values stay where they are";
  map.Insert("A", 4);
  EXPECT_EQ(map["A"], 4);
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
  b = *&b;
  EXPECT_EQ(Text(b), "x = 7\ny = 2\n");
  b = std::move(a);
  EXPECT_EQ(Text(b), "x = 1\ny = 2\n");
  EXPECT_EQ(Text(a), "");
  EXPECT_FALSE(a.KeyExists("x"));
}

TEST(MyMapTest, ExceptionOfAValueLosesNothing) {
  struct Picky {
    explicit Picky(int value) : mValue(value < 0 ? throw std::range_error("negative") : value) {}
    Picky(const Picky& other) : Picky(other.mValue) {}
    int mValue;
  };
  using Map = MyMap<std::string, Picky>;
  MyAllocatorProfiler::ProfilingEnabled = true;
  MyAllocatorProfiler::NumBytesAllocated = 0;
  {
    Map map;
    map.Insert("a", 1);
    EXPECT_THROW(map.Insert("b", -1), std::range_error);
    EXPECT_EQ(map.Size(), 1);
    map.Insert("b", 2);
    map["b"].mValue = -1;
    EXPECT_THROW(Map{map}, std::range_error);
    EXPECT_EQ(MyAllocatorProfiler::NumBytesAllocated, 2 * sizeof(Picky));
  }
  EXPECT_EQ(MyAllocatorProfiler::NumBytesAllocated, 0u);
  MyAllocatorProfiler::ProfilingEnabled = false;
}

// A value whose destruction fails has all maps written, also the one that is being cleared.
TEST(MyMapTest, ShowsWholeEntriesOnlyWhileItIsCleared) {
  struct Observer {
    explicit Observer(const MyMap<int, Observer>& map) : mMap(map) {}
    ~Observer() {
      EXPECT_EQ(mMap.Keys().size(), mMap.size());
      for (const auto& [key, value] : mMap) {
        EXPECT_NE(&value, this);
      }
    }
    const MyMap<int, Observer>& mMap;
  };
  MyMap<int, Observer> map;
  map.Insert(1, map).Insert(2, map);
  map.clear();
  EXPECT_FALSE(map.KeyExists(1));
}

}  // namespace
