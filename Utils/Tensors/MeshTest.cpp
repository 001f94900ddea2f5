#include "Utils/Tensors/Mesh.hpp"

#include <gmock/gmock.h>

#include <limits>
#include <string>

#include "Utils/ErrorHandling/ReportOf.hpp"
#include "Utils/Tensors/DataMesh.hpp"

namespace {

using testing::HasSubstr;

TEST(Mesh, TheFirstIndexVariesFastest) {
  const MyVector<int> extents{2, 3};
  EXPECT_EQ(GetMeshIndexFromOffset(5, extents), (MyVector<int>{1, 2}));
  EXPECT_EQ(GetMeshIndexFromOffset(2, extents), (MyVector<int>{0, 1}));
  EXPECT_EQ(GetMeshIndexFromOffset(0, {}), MyVector<int>{});
  for (const std::ptrdiff_t outside : {-1, 6}) {
    EXPECT_THAT(ReportOf([&] { GetMeshIndexFromOffset(outside, extents); }),
                HasSubstr("is not within a mesh of extents (2,3)"));
  }
}

TEST(Mesh, CountsPointsAndRefusesWhatCannotBe) {
  constexpr int huge = std::numeric_limits<int>::max();
  EXPECT_EQ(Mesh().Size(), 1);
  EXPECT_EQ(Mesh({2, 3, 4}).Size(), 24);
  EXPECT_EQ(Mesh({huge, huge, huge, 0}).Size(), 0) << "no points, in any order of the extents";
  EXPECT_EQ(Mesh({0, huge, huge, huge}).Size(), 0);
  // 2^60 points are 2^63 bytes, one more than addresses reach.
  EXPECT_EQ(Mesh({1 << 30, 1 << 29}).Size(), std::ptrdiff_t{1} << 59);
  EXPECT_THAT(ReportOf([] { Mesh({1 << 30, 1 << 30}); }), HasSubstr("too many points"));
  EXPECT_THAT(ReportOf([] { Mesh({huge, huge, huge}); }), HasSubstr("too many points"));
  EXPECT_THAT(ReportOf([] { Mesh({-2, -2}); }), HasSubstr("must not be negative, got (-2,-2)"));
  EXPECT_THAT(ReportOf([] { Mesh({0, -1}); }), HasSubstr("must not be negative"));
  EXPECT_THAT(ReportOf([] { Mesh(MyVector<int>(MV::Size(33), 1)); }),
              HasSubstr("at most 32 dimensions, got 33"));
}

TEST(DataMesh, HasOneValuePerPoint) {
  DataMesh data(Mesh({2, 2}), {1, 2, 3, 4});
  const DataMesh copy = data;
  data[3] = 5;
  EXPECT_THAT(data, testing::ElementsAre(1, 2, 3, 5));
  EXPECT_THAT(copy, testing::ElementsAre(1, 2, 3, 4));
  EXPECT_THAT(DataMesh(Mesh({3})), testing::ElementsAre(0, 0, 0));
  EXPECT_EQ(DataMesh().Size(), DataMesh().Mesh().Size());
  EXPECT_FALSE(data == DataMesh(Mesh({4}), {1, 2, 3, 5}));
  EXPECT_THAT(ReportOf([] {
                DataMesh(Mesh({2, 2}), {1, 2, 3});
              }),
              HasSubstr("3 values for a mesh of 4 points"));
}

}  // namespace
