#include "Utils/Tensors/Mesh.hpp"

#include <gmock/gmock.h>

#include <limits>
#include <utility>

#include "Utils/ErrorHandling/TestSupport/ReportOf.hpp"
#include "Utils/Tensors/DataMesh.hpp"

namespace {

using testing::HasSubstr;

TEST(Mesh, CountsPointsAndRefusesWhatCannotBe) {
  constexpr int huge = std::numeric_limits<int>::max();
  EXPECT_EQ(Mesh().Size(), 1);
  EXPECT_EQ(Mesh({huge, huge, huge, 0}).Size(), 0) << "no points, in any order of the extents";
  EXPECT_EQ(Mesh(MyVector<int>(MV::Size(32), 1)).Size(), 1);
  // 2^60 points are 2^63 bytes, one more than addresses reach.
  EXPECT_EQ(Mesh({(1 << 30) - 1, (1 << 30) + 1}).Size(), (std::ptrdiff_t{1} << 60) - 1);
  const std::pair<MyVector<int>, const char*> refused[] = {
      {{1 << 30, 1 << 30}, "too many points"},
      {{0, -1}, "must not be negative, got (0,-1)"},
      {MyVector<int>(MV::Size(33), 1), "at most 32 dimensions, got 33"}};
  for (const auto& [extents, message] : refused) {
    EXPECT_THAT(ReportOf([&] { const Mesh mesh(extents); }), HasSubstr(message));
  }
}

TEST(DataMesh, HasOneValuePerPoint) {
  DataMesh data(Mesh({2, 2}), {1, 2, 3, 4});
  const DataMesh copy = data;
  data[3] = 5;
  EXPECT_THAT(data, testing::ElementsAre(1, 2, 3, 5));
  EXPECT_FALSE(data == copy || data == DataMesh(Mesh({4}), {1, 2, 3, 5}));
  EXPECT_TRUE(DataMesh(Mesh({1})) == DataMesh(Mesh({1}), {0}));
  const Mesh mesh({2, 2});
  EXPECT_THAT(ReportOf([&] { const DataMesh few(mesh, MyVector<double>(MV::Size(3))); }),
              HasSubstr("3 values for a mesh of 4 points"));
}

}  // namespace
