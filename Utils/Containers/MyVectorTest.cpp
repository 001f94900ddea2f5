#include "Utils/Containers/MyVector.hpp"

#include <gtest/gtest.h>

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

TEST(MyVectorTest, AssignKeepsStorageOfTheSameSizeOnly) {
  const Profiling profiling;
  { const MyVector<double> gone(MV::Size(1000)); }
  EXPECT_EQ(MyAllocatorProfiler::MaxBytesAllocated, 8000u);
  MyVector<double> v(MV::Size(5), 1.0);
  const double* storage = v.data();
  v.assign(MV::Size(5), 2.0);
  EXPECT_EQ(v.data(), storage);
  EXPECT_EQ(v, (MyVector<double>{2, 2, 2, 2, 2}));
  v.assign(MV::Size(3));
  EXPECT_EQ(v, (MyVector<double>{0, 0, 0}));
  EXPECT_FALSE(v == (MyVector<double>{0, 0}) || v == (MyVector<double>{0, 0, 0, 0}));
  EXPECT_EQ(MyAllocatorProfiler::NumBytesAllocated, 24u);
  v.assign(MV::FillTag_nonconst{}, MV::Size(2), v[2]);
  EXPECT_EQ(v, (MyVector<double>{0, 0}));
  v.reallocate(0);
  v.reallocate(0);
  EXPECT_EQ(v.data(), nullptr);
  EXPECT_EQ(MyAllocatorProfiler::NumBytesAllocated, 0u);
  const MyVector<MyVector<int>> nested(MV::Size(2));
  EXPECT_EQ(nested, (MyVector<MyVector<int>>{MyVector<int>(), MyVector<int>()}));
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

// Throws when constructed from a negative value.
struct Counted {
  explicit Counted(int value = 0) {
    static_cast<void>(value < 0 ? throw std::range_error("negative") : ++sAlive);
  }
  ~Counted() { --sAlive; }
  static inline int sAlive = 0;
};

TEST(MyVectorTest, ExceptionOfAnElementLeavesNothingBehind) {
  const Profiling profiling;
  {
    MyVector<Counted> v(MV::Size(3));
    EXPECT_THROW(v.assign(MV::Sequence(std::vector<int>{1, 2, -1, 3})), std::range_error);
    EXPECT_TRUE(v.empty());
    EXPECT_EQ(MyAllocatorProfiler::NumBytesAllocated, 0u);
  }
  EXPECT_EQ(Counted::sAlive, 0);
  MyVector<double> tooLarge;
  EXPECT_THROW(tooLarge.reallocate(std::uint64_t{1} << 62), std::bad_alloc);
  EXPECT_TRUE(tooLarge.empty());
}

}  // namespace
