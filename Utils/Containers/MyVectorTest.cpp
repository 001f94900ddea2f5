#include "Utils/Containers/MyVector.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace {

class Profiling {
 public:
  Profiling() {
    MyAllocatorProfiler::ProfilingEnabled = true;
    MyAllocatorProfiler::NumBytesAllocated = MyAllocatorProfiler::MaxBytesAllocated = 0;
  }
  ~Profiling() { MyAllocatorProfiler::ProfilingEnabled = false; }
};

// Counts its instances; the constructor from a value throws for negative ones.
struct Counted {
  explicit Counted(int value = 0) : mValue(value) {
    if (value < 0) {
      throw std::invalid_argument("negative");
    }
    ++sAlive;
  }
  Counted(const Counted& other) : Counted(other.mValue) {}
  Counted& operator=(const Counted&) = default;
  ~Counted() { --sAlive; }
  int mValue;
  static inline int sAlive = 0;
};

TEST(MyVectorTest, Construction) {
  const std::vector<std::string> names{"a", "b"};
  EXPECT_EQ(MyVector<std::string>(names), (MyVector<std::string>{"a", "b"}));
  EXPECT_EQ(MyVector<double>(MV::Size(2)), (MyVector<double>{0.0, 0.0}));
  EXPECT_EQ(MyVector<int>(MV::Size(3), 7), (MyVector<int>{7, 7, 7}));
  EXPECT_EQ(MyVector<int>(MV::Sequence(names[0].c_str(), 1)), (MyVector<int>{'a'}));
  const MyVector<MyVector<int>> nested(MV::Size(2));
  EXPECT_EQ(nested, (MyVector<MyVector<int>>{MyVector<int>(), MyVector<int>()}));
  const MyVector<int> empty;
  EXPECT_EQ(empty.Size(), 0);
  EXPECT_EQ(empty.data(), nullptr);
  EXPECT_FALSE(empty == (MyVector<int>{0}));
}

TEST(MyVectorTest, AssignKeepsStorageOfTheSameSizeOnly) {
  const Profiling profiling;
  { const MyVector<double> gone(MV::Size(1000)); }
  EXPECT_EQ(MyAllocatorProfiler::MaxBytesAllocated, 8000u);
  MyVector<double> v(MV::Size(5), 1.0);
  const double* storage = v.data();
  v.assign(MV::Size(5), 2.0);
  EXPECT_EQ(v.data(), storage);
  EXPECT_EQ(v, (MyVector<double>{2, 2, 2, 2, 2}));
  EXPECT_EQ(MyAllocatorProfiler::NumBytesAllocated, 40u);
  v.assign(MV::Size(6));
  EXPECT_EQ(v, (MyVector<double>{0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(MyAllocatorProfiler::NumBytesAllocated, 48u);
  v.assign(MV::FillTag_nonconst{}, MV::Size(2), v[5]);
  EXPECT_EQ(v, (MyVector<double>{0, 0}));
  v.reallocate(0);
  v.reallocate(0);
  EXPECT_EQ(v.data(), nullptr);
  EXPECT_EQ(MyAllocatorProfiler::NumBytesAllocated, 0u);
}

TEST(MyVectorTest, CopyAndMove) {
  MyVector<std::string> a{"x", "y"};
  MyVector<std::string> b(a);
  b[0] = "changed";
  EXPECT_EQ(a[0], "x");
  a = *&a;
  EXPECT_EQ(a.Size(), 2);
  const std::string* storage = a.data();
  b = std::move(a);
  EXPECT_EQ(b.data(), storage);
  EXPECT_TRUE(a.empty()) << "what was replaced is given back at once";
}

TEST(MyVectorTest, ConstructsInPlaceWhatCannotBeMoved) {
  struct Pinned {
    explicit Pinned(int value) : mpSelf(this), mValue(value) {}
    Pinned(const Pinned&) = delete;
    Pinned* mpSelf;
    int mValue;
  };
  struct Maker {
    Pinned operator*() const { return Pinned(mValue); }
    void operator++() { ++mValue; }
    int mValue;
  };
  const MyVector<Pinned> v(MV::Sequence(Maker{3}, 2));
  EXPECT_EQ(v[1].mpSelf, &v[1]);
  EXPECT_EQ(v[1].mValue, 4);
}

TEST(MyVectorTest, ExceptionOfAnElementLeavesNothingBehind) {
  const Profiling profiling;
  {
    MyVector<Counted> v(MV::Size(3));
    EXPECT_THROW(v.assign(MV::Sequence(std::vector<int>{1, 2, -1, 3})), std::invalid_argument);
    EXPECT_TRUE(v.empty());
    EXPECT_THROW(MyVector<Counted>(MV::Sequence(std::vector<int>{1, -1})), std::invalid_argument);
    EXPECT_EQ(MyAllocatorProfiler::NumBytesAllocated, 0u);
    EXPECT_THROW(v.reallocate(std::uint64_t{1} << 62), std::bad_alloc);
    EXPECT_TRUE(v.empty());
  }
  EXPECT_EQ(Counted::sAlive, 0);
}

}  // namespace
