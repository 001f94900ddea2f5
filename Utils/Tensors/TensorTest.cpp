#include "Utils/Tensors/Tensor.hpp"

#include <gmock/gmock.h>

#include <cmath>
#include <string>
#include <thread>
#include <tuple>
#include <utility>

#include "Utils/ErrorHandling/TestSupport/ReportOf.hpp"
#include "Utils/Tensors/DataMesh.hpp"

namespace {

using testing::HasSubstr;

constexpr const char* sLongest = "11111111111111111111";

TEST(TensorIndexTable, NumbersOneComponentPerCanonicalList) {
  const std::tuple<int, const char*, int> cases[] = {
      {3, "12", 9}, {3, "111", 10},    {4, "1212", 100},       {1, "1213", 1},
      {-1, "", 1},  {2, sLongest, 21}, {1 << 20, "1", 1 << 20}};
  for (const auto& [dim, symmetry, components] : cases) {
    EXPECT_EQ(TensorIndexTable(dim, symmetry).NumberOfComponents(), components) << symmetry;
  }
  EXPECT_EQ(TensorIndexTable(3, "12").Index({1, 2}), 7);
  EXPECT_EQ(TensorIndexTable(3, "").Index({}), 0);
  EXPECT_EQ(testing::PrintToString(TensorIndexTable(3, "1\n1")),
            "dimension 3, symmetry '1\\n1', 18 components");
}

TEST(TensorIndexTable, SortsEveryGroupOfSlotsByItself) {
  MyVector<int> canonical;
  TensorIndexTable::ApplySymmToIndexList("12121", {0, 0, 1, 3, 2}, canonical);
  EXPECT_EQ(canonical, (MyVector<int>{2, 3, 1, 0, 0}));
  // The last shape is too large to be stored.
  for (const auto& [rank, symmetry] : {std::pair{2, "11"}, {5, "12121"}, {8, "12131133"}}) {
    const TensorIndexTable table(3, symmetry);
    int number = 0;
    for (int flat = 0; flat < std::pow(3, rank); ++flat) {
      const MyVector<int> list = ComputeIndex(flat, MyVector<int>(MV::Size(rank), 3));
      TensorIndexTable::ApplySymmToIndexList(symmetry, list, canonical);
      EXPECT_EQ(table.Index(list), list == canonical ? number++ : table.Index(canonical)) << list;
    }
    EXPECT_EQ(table.NumberOfComponents(), number);
  }
}

TEST(TensorIndexTable, RefusesIndicesAndShapesThatNoTensorHas) {
  const TensorIndexTable table(3, "11");
  for (const MyVector<int>& indices : {MyVector<int>{0}, {0, 0, 0}, {0, 3}, {-1, 0}}) {
    EXPECT_THAT(ReportOf([&] { table.Index(indices); }), HasSubstr("are not valid"));
  }
  EXPECT_THAT(ReportOf([] { TensorIndexTable((1 << 20) + 1, "1"); }), HasSubstr("has too many"));
  EXPECT_THAT(ReportOf([] { TensorIndexTable(1, sLongest + std::string("1")); }),
              HasSubstr("at most 20 indices, got 21"));
  MyVector<int> canonical;
  EXPECT_THAT(ReportOf([&] { TensorIndexTable::ApplySymmToIndexList("11", {0}, canonical); }),
              HasSubstr("1 indices for a symmetry of 2 slots"));
  const MyVector<int> extents{2, 3, 4};
  EXPECT_EQ(ComputeIndex(23, extents), (MyVector<int>{1, 2, 3}));
  for (const std::ptrdiff_t outside : {-1, 24}) {
    EXPECT_THAT(ReportOf([&] { ComputeIndex(outside, extents); }),
                HasSubstr("is not within a mesh of extents (2,3,4)"));
  }
}

TEST(TensorIndexTableHolder, SharesWithinAThreadAndCopiesForAnother) {
  const auto mine = FindTensorIndexTable(3, "11");
  EXPECT_EQ(FindTensorIndexTable(3, "11"), mine);
  std::shared_ptr<const TensorIndexTable> theirs;
  std::thread([&] { theirs = FindTensorIndexTable(3, "11"); }).join();
  EXPECT_NE(theirs, mine);
  EXPECT_EQ(theirs->Index({2, 1}), 4) << "outlives its thread";

  TensorIndexTableHolder holder;
  const auto original = holder.Find(2, "12");
  const auto copied = TensorIndexTableHolder(holder).Find(2, "12");
  EXPECT_TRUE(copied != original && *copied == *original);
  EXPECT_FALSE(*original == TensorStructure(2, "34")) << "other names of the same symmetry";
  EXPECT_FALSE(*original == TensorStructure(3, "12"));
  EXPECT_EQ(holder.Find(2, "12"), original);
}

TEST(Tensor, HasAComponentPerIndependentIndexList) {
  Tensor<DataMesh> tensor(FindTensorIndexTable(3, "11"), Mesh({2, 3}));
  EXPECT_EQ(tensor.Size(), 6);
  tensor({0, 2})[5] = 7;
  EXPECT_EQ(tensor[2][5], 7);
  EXPECT_EQ(tensor({2, 0})[5], 7);
  const Tensor<DataMesh> copy = tensor;
  tensor[1] = DataMesh(Mesh({1}));
  EXPECT_EQ(copy[1].Size(), 6);
  EXPECT_THAT(ReportOf([] { Tensor<DataMesh>().Structure(); }), HasSubstr("has no structure"));
  EXPECT_THAT(ReportOf([] { Tensor<DataMesh>(nullptr, Mesh()); }), HasSubstr("needs a structure"));
}

}  // namespace
