#include "Utils/Tensors/Tensor.hpp"

#include <gmock/gmock.h>

#include <sstream>
#include <string>
#include <thread>

#include "Utils/ErrorHandling/ReportOf.hpp"
#include "Utils/Tensors/DataMesh.hpp"

namespace {

using testing::HasSubstr;

TEST(TensorIndexTable, NumbersOneComponentPerCanonicalList) {
  struct Case {
    int mDim;
    const char* mSymm;
    int mComponents;
  };
  const Case cases[] = {{3, "", 1},     {3, "1", 3},      {3, "11", 6},   {3, "12", 9},
                        {3, "111", 10}, {4, "1212", 100}, {1, "1213", 1}, {-1, "", 1}};
  for (const Case& c : cases) {
    EXPECT_EQ(TensorIndexTable(c.mDim, c.mSymm).NumberOfComponents(), c.mComponents)
        << c.mDim << ' ' << c.mSymm;
  }
  const TensorIndexTable symmetric(3, "11");
  const MyVector<int> inOrder[] = {{0, 0}, {1, 0}, {2, 0}, {1, 1}, {2, 1}, {2, 2}};
  int number = 0;
  for (const MyVector<int>& indices : inOrder) {
    EXPECT_EQ(symmetric.Index(indices), number++) << indices;
    EXPECT_EQ(symmetric.Index({indices[1], indices[0]}), symmetric.Index(indices)) << indices;
  }
  EXPECT_EQ(TensorIndexTable(3, "12").Index({1, 2}), 7);
  EXPECT_EQ(TensorIndexTable(3, "").Index({}), 0);
  // The outer slots are symmetric, the one between stands on its own.
  const TensorIndexTable outer(3, "aba");
  EXPECT_EQ(outer.Index({0, 1, 2}), outer.Index({2, 1, 0}));
  EXPECT_NE(outer.Index({0, 1, 2}), outer.Index({1, 0, 2}));
}

TEST(TensorIndexTable, SortsEveryGroupOfSlotsByItself) {
  MyVector<int> canonical;
  TensorIndexTable::ApplySymmToIndexList("12121", {0, 0, 1, 3, 2}, canonical);
  EXPECT_EQ(canonical, (MyVector<int>{2, 3, 1, 0, 0}));
  const TensorIndexTable table(3, "12121");
  for (int flat = 0; flat < 243; ++flat) {
    const MyVector<int> list = ComputeIndex(flat, {3, 3, 3, 3, 3});
    TensorIndexTable::ApplySymmToIndexList("12121", list, canonical);
    EXPECT_EQ(table.Index(list), table.Index(canonical)) << list;
  }
  EXPECT_THAT(ReportOf([&] { TensorIndexTable::ApplySymmToIndexList("11", {0}, canonical); }),
              HasSubstr("1 indices for a symmetry of 2 slots"));
}

TEST(TensorIndexTable, FlatIndicesInvert) {
  const MyVector<int> extents{2, 3, 4};
  EXPECT_EQ(ComputeIndex({1, 2, 3}, extents), 23);
  EXPECT_EQ(ComputeIndex({1, 0, 1}, extents), 7);
  for (std::ptrdiff_t flat = 0; flat < 24; ++flat) {
    EXPECT_EQ(ComputeIndex(ComputeIndex(flat, extents), extents), flat);
  }
}

TEST(TensorIndexTable, RefusesIndicesOutOfRange) {
  const TensorIndexTable table(3, "11");
  for (const MyVector<int>& indices : {MyVector<int>{0}, {0, 0, 0}, {0, 3}, {-1, 0}}) {
    EXPECT_FALSE(table.IsIndexValid(indices)) << indices;
    EXPECT_THAT(ReportOf([&] { table.Index(indices); }), HasSubstr("are not valid"));
  }
}

TEST(TensorIndexTable, RefusesShapesThatNoTensorHas) {
  const std::string longest(20, '1');
  EXPECT_EQ(TensorIndexTable(2, longest).NumberOfComponents(), 21);
  EXPECT_EQ(TensorIndexTable(1 << 20, "1").NumberOfComponents(), 1 << 20);
  EXPECT_THAT(ReportOf([] { TensorIndexTable((1 << 20) + 1, "1"); }), HasSubstr("too many"));
  EXPECT_THAT(ReportOf([&] { TensorIndexTable(3, longest); }), HasSubstr("rank 20 has too many"));
  EXPECT_THAT(ReportOf([] { TensorIndexTable(65536, "12"); }), HasSubstr("dimension 65536"));
  EXPECT_THAT(ReportOf([&] { TensorIndexTable(1, longest + '1'); }),
              HasSubstr("at most 20 indices, got 21"));
  EXPECT_THAT(ReportOf([] { TensorIndexTable(0, "1"); }), HasSubstr("must be positive, got 0"));
}

TEST(TensorIndexTable, EqualMeansSameDimensionAndSameString) {
  const TensorStructure structure(3, "11");
  EXPECT_TRUE(structure == TensorStructure(3, "11"));
  EXPECT_FALSE(structure == TensorStructure(3, "12"));
  EXPECT_FALSE(structure == TensorStructure(3, "22"));
  EXPECT_FALSE(structure == TensorStructure(4, "11"));
  std::ostringstream text;
  text << structure;
  EXPECT_EQ(text.str(), "dimension 3, symmetry '11', 6 components");
}

TEST(TensorIndexTableHolder, SharesWithinAThreadAndCopiesForAnother) {
  const auto mine = FindTensorIndexTable(3, "11");
  EXPECT_EQ(FindTensorIndexTable(3, "11"), mine);
  EXPECT_NE(FindTensorIndexTable(31, "1"), FindTensorIndexTable(3, "11"));
  std::shared_ptr<const TensorIndexTable> theirs;
  std::thread([&] { theirs = FindTensorIndexTable(3, "11"); }).join();
  EXPECT_NE(theirs, mine);
  EXPECT_EQ(theirs->Index({2, 1}), 4) << "outlives its thread";

  TensorIndexTableHolder holder;
  const auto original = holder.Find(2, "12");
  TensorIndexTableHolder copy(holder);
  EXPECT_NE(copy.Find(2, "12"), original);
  EXPECT_EQ(*copy.Find(2, "12"), *original);
}

TEST(Tensor, HasAComponentPerIndependentIndexList) {
  Tensor<DataMesh> tensor(FindTensorIndexTable(3, "11"), Mesh({2, 3}));
  EXPECT_EQ(tensor.Size(), 6);
  tensor({0, 2})[5] = 7;
  EXPECT_EQ(tensor[2][5], 7);
  EXPECT_EQ(tensor({2, 0})[5], 7);
  for (const DataMesh& component : tensor) {
    EXPECT_EQ(component.Mesh(), Mesh({2, 3}));
  }
  const Tensor<DataMesh> copy = tensor;
  tensor[1] = DataMesh(Mesh({1}));
  EXPECT_EQ(copy[1].Size(), 6);
  EXPECT_EQ(&copy.Structure(), &tensor.Structure());
  EXPECT_EQ(&Tensor<DataMesh>(TensorStructure(3, "11"), Mesh()).Structure(), &tensor.Structure());
}

TEST(Tensor, WithoutStructureReports) {
  EXPECT_EQ(Tensor<DataMesh>().Size(), 0);
  EXPECT_THAT(ReportOf([] { Tensor<DataMesh>().Structure(); }), HasSubstr("has no structure"));
  EXPECT_THAT(ReportOf([] { Tensor<DataMesh>(nullptr, Mesh()); }), HasSubstr("needs a structure"));
}

}  // namespace
