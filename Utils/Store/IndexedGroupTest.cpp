#include "Utils/Store/IndexedGroup.hpp"

#include <gtest/gtest.h>

#include <numeric>
#include <tuple>

#include "Utils/HDF5/TestSupport/PlainH5.hpp"
#include "Utils/Store/H5_ObjectCoef.hpp"
#include "Utils/Store/H5_ObjectTdm.hpp"

namespace {

using H5_Objects::Coef;
using H5_Objects::Tdm;
using PlainH5::ExpectReport;
using PlainH5::Rows;

using IndexedGroupTest = PlainH5::FileTest;

TEST_F(IndexedGroupTest, CoefficientVectorsOfChangingLength) {
  Coef coef("c.coef", false, 0);
  coef.Initialize("time", "power", true, 4, 8);
  coef.Append(0, {1, 2, 3});
  coef.Append(1, {});
  coef.OpenObject(mFile.Id());
  coef.WriteCache();
  EXPECT_EQ(coef.SizeOfCache(), 0u);
  coef.Append(2, {4, 5});
  coef.WriteCache();
  EXPECT_EQ(mFile.ReadTable("c.coef/index.dat"), (Rows{{0, 3}, {1, 3}, {2, 5}}));
  MyVector<double> times;
  MyVector<MyVector<double>> data;
  coef.RetrieveData(times, data);
  EXPECT_EQ(times, (MyVector<double>{0, 1, 2}));
  EXPECT_EQ(data, (MyVector<MyVector<double>>{{1, 2, 3}, {}, {4, 5}}));
  EXPECT_EQ(coef.RetrieveCoefficients(2), data[2]);
  ExpectReport([&] { coef.RetrieveCoefficients(3); }, "filestep < mIndex.GetExtents()[0]",
               "Access out of bounds.  Requesting filestep=3 in a dataset with only 3");
  coef.CloseObject();
}

TEST_F(IndexedGroupTest, TensorsOnChangingMeshes) {
  const auto structure = FindTensorIndexTable(3, "1");
  Tdm tdm("t.tdm", false, 0);
  tdm.Initialize("time", "shift", *structure, 2, false, 4, 8);
  double next = 0;
  const auto append = [&](double time, const MyVector<int>& extents) {
    Tensor<DataMesh> tensor(structure, Mesh(extents));
    for (DataMesh& component : tensor) {
      std::iota(component.begin(), component.end(), next);
      next += component.Size();
    }
    tdm.Append(time, tensor);
  };
  append(0, {2, 3});
  append(1, {4, 1});
  Tensor<DataMesh> uneven(structure, Mesh({2, 2}));
  uneven[1] = DataMesh(Mesh({3, 1}));
  ExpectReport([&] { tdm.Append(2, uneven); }, "it->Size()==mesh.Size()",
               "inconsistent sizes in the components of the tensor");
  tdm.OpenObject(mFile.Id());
  tdm.WriteCache();
  const Tensor<DataMesh> step = tdm.RetrieveStep(1);
  EXPECT_EQ(step[0].Mesh(), Mesh({4, 1}));
  EXPECT_EQ(step[2][3], 29);
  MyVector<double> times;
  MyVector<Tensor<DataMesh>> data;
  tdm.RetrieveData(times, data);
  EXPECT_EQ(data[0][1][5], 11);
  tdm.CloseObject();
}

TEST_F(IndexedGroupTest, SymmetriesThatCannotBeReadBackAreRefused) {
  const auto initialize = [](const std::string& symmetry) {
    Tdm("t.tdm", false, 0).Initialize("t", "x", *FindTensorIndexTable(2, symmetry), 1, false, 4, 8);
  };
  for (const std::string symmetry : {"1;2", "1#", "1=", ")(", "(", " 1"}) {
    ExpectReport([&] { initialize(symmetry); }, "canBeStored", "The symmetry '" + symmetry);
  }
  initialize("1 1");
  initialize("(=;)");
}

TEST_F(IndexedGroupTest, WhatAKilledRunLeftIsCutBackToTheLastWholeStep) {
  const std::tuple<const char*, Rows, std::size_t, hsize_t, hsize_t> cases[] = {
      // name, index, values, steps and values kept
      {"nothing but a step without values", {{0, 0, 0}}, 0, 1, 0},
      {"steps without values first and last", {{0, 0, 0}, {1, 3, 1}, {2, 3, 0}}, 3, 3, 3},
      {"values without a step", {{0, 3, 1}}, 5, 1, 3},
      {"a step with some of its values", {{0, 3, 1}, {1, 6, 1}}, 5, 1, 3},
      {"steps never written", {{1, 3, 1}, {0, 0, 0}, {0, 0, 0}}, 3, 1, 3},
      {"no step written, but values", {{0, 0, 0}, {0, 0, 0}}, 3, 0, 0},
      {"extents never written", {{0, 3, 1}, {1, 6, 0}}, 6, 1, 3}};
  for (const auto& [name, index, values, stepsKept, valuesKept] : cases) {
    auto file = PlainH5::File::Create(mDir / "cut.h5");
    file.Table("t.tdm/index.dat", index);
    file.Table("t.tdm/data.dat", Rows(values, {1.0}), {}, 1);
    file.StringAttribute("t.tdm", "TensorSpec", {"TensorDim=3; TensorSymm=1; DataMeshDim=1;"});
    Tdm tdm("t.tdm", true, 0);
    tdm.OpenObject(file.Id());
    tdm.PrepareToAppend();
    EXPECT_EQ(tdm.GetNumberOfTimeSteps(), stepsKept) << name;
    tdm.CloseObject();
    EXPECT_EQ(file.Dims("t.tdm/index.dat")[0], stepsKept) << name;
    EXPECT_EQ(file.Dims("t.tdm/data.dat")[0], valuesKept) << name;
  }
}

}  // namespace
