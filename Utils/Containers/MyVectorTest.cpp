#include "Utils/Containers/MyVector.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>

namespace {

std::string Text(const auto& vector) {
  return testing::PrintToString(vector);
}

// Throws when constructed from a negative value.
struct Counted {
  explicit Counted(int value = 0) { value < 0 ? throw std::range_error("negative") : ++sAlive; }
  ~Counted() { --sAlive; }
  static inline int sAlive = 0;
};

using Profiler = MyAllocatorProfiler;
[[maybe_unused]] const bool sIsCounted = Profiler::ProfilingEnabled = true;

TEST(MyVectorTest, AssignKeepsStorageOfTheSameSizeOnly) {
  Profiler::MaxBytesAllocated = 0;
  MyVector<double>(MV::Size(1000));
  MyVector<double> v(MV::Size(5), 1.0);
  EXPECT_EQ(Profiler::MaxBytesAllocated, 8000u);
  v.assign(MV::Size(5), 2.0);
  v.reallocate(5);
  EXPECT_EQ(Text(v), "(2,2,2,2,2)") << "of doubles in the same place, nothing is lost";
  v.assign(MV::Size(3));
  EXPECT_EQ(Text(v), "(0,0,0)");
  EXPECT_FALSE(v == (MyVector<double>{0, 0}) || v == (MyVector<double>{0, 0, 0, 0}));
  v[2] = 1;
  v.assign(MV::FillTag_nonconst{}, MV::Size(2), v[2]);
  EXPECT_EQ(Text(v), "(1,1)");
  v.reallocate(0);
  EXPECT_EQ(v.data(), nullptr);
  EXPECT_EQ(Profiler::NumBytesAllocated, 0u);
  EXPECT_EQ(Text(MyVector<MyVector<int>>(MV::Size(2), MV::Size(3))), "((0,0,0),(0,0,0))");
  Profiler::ProfilingEnabled = false;
  v.assign(MV::Size(1));
  v.Clear();
  EXPECT_EQ(Profiler::NumBytesAllocated, 0u);
  Profiler::ProfilingEnabled = true;
}

TEST(MyVectorTest, CopyAndMove) {
  MyVector<std::string> a{"x", "y"};
  MyVector<std::string> b(a);
  b[0] = "changed";
  MyVector<std::string>& same = a;
  a = same;
  a = std::move(same);
  EXPECT_EQ(Text(a), "(x,y)");
  const std::string* storage = a.data();
  b = std::move(a);
  EXPECT_EQ(b.data(), storage);
  EXPECT_TRUE(a.empty()) << "what was replaced is given back at once";
}

TEST(MyVectorTest, EveryElementIsDestroyedOnce) {
  MyVector<Counted> v(MV::Size(3));
  v.assign(MV::Size(3));
  EXPECT_EQ(Counted::sAlive, 3);
  EXPECT_THROW(v.assign(MV::Sequence(std::vector<int>{1, 2, -1, 3})), std::range_error);
  EXPECT_EQ(Counted::sAlive, 0);
  EXPECT_EQ(v.size() + Profiler::NumBytesAllocated, 0u);
  EXPECT_THROW(MyVector<double>().reallocate(1ULL << 61), std::bad_array_new_length);
}

}  // namespace
