#include "Utils/H5/H5_IndexedGroup.hpp"

#include <gtest/gtest.h>

#include "Utils/H5/H5_ObjectCoef.hpp"
#include "Utils/H5/H5_ObjectTdm.hpp"
#include "Utils/H5/TestSupport/PlainH5.hpp"

namespace {

using H5_Objects::Coef;
using H5_Objects::Tdm;
using PlainH5::IsReport;
using PlainH5::ReportOf;
using PlainH5::Rows;

class IndexedGroupTest : public testing::Test {
 protected:
  IndexedGroupTest() : mFile(PlainH5::File::Create(mDir / "g.h5")) {}

  void CoefSet(const std::string& name, const Rows& index, std::size_t values) {
    Rows rows;
    for (std::size_t i = 0; i < values; ++i) {
      rows.push_back({static_cast<double>(i)});
    }
    mFile.Table(name + "/index.dat", index, {}, 2);
    mFile.Table(name + "/coefs.dat", rows, {}, 1);
  }
  void TdmSet(const std::string& name, const Rows& index, std::size_t values,
              const std::vector<std::string>& spec) {
    Rows rows(values, {1.0});
    mFile.Table(name + "/index.dat", index, {}, 3);
    mFile.Table(name + "/data.dat", rows, {}, 1);
    if (!spec.empty()) {
      mFile.StringAttribute(name, "TensorSpec", spec);
    }
  }
  std::string CoefReport(const std::string& name) {
    return ReportOf([&] {
      Coef coef(name, true, 0);
      coef.OpenObject(mFile.Id());
      MyVector<double> times;
      MyVector<MyVector<double>> data;
      coef.RetrieveData(times, data);
      coef.CloseObject();
    });
  }
  std::string TdmReport(const std::string& name) {
    return ReportOf([&] {
      Tdm tdm(name, true, 0);
      tdm.OpenObject(mFile.Id());
      MyVector<double> times;
      MyVector<Tensor<DataMesh>> data;
      tdm.RetrieveData(times, data);
      tdm.CloseObject();
    });
  }

  PlainH5::TempDir mDir;
  PlainH5::File mFile;
};

TEST_F(IndexedGroupTest, CoefficientVectorsOfChangingLength) {
  Coef coef("c.coef", false, 0);
  EXPECT_TRUE(IsReport(ReportOf([&] { coef.Append(0, {1}); }), "",
                       "Must initialize H5_PluginsCoef before appending data"));
  coef.Initialize("time", "power", true, 4, 8);
  coef.Append(0, {1, 2, 3});
  coef.Append(1, {});
  EXPECT_EQ(coef.NTimeStepsCached(), 2u);
  coef.OpenObject(mFile.Id());
  coef.WriteCache();
  EXPECT_EQ(coef.SizeOfCache(), 0u);
  coef.Append(2, {4, 5});
  coef.WriteCache();
  coef.CloseObject();
  EXPECT_EQ(mFile.ReadTable("c.coef/index.dat"), (Rows{{0, 3}, {1, 3}, {2, 5}}));
  EXPECT_EQ(mFile.ReadTable("c.coef/coefs.dat"), (Rows{{1}, {2}, {3}, {4}, {5}}));
  EXPECT_EQ(mFile.ReadStringAttribute("c.coef/index.dat", "Legend"),
            (std::vector<std::string>{"time", "index one past current coeff-data"}));

  Coef again("c.coef", true, 0);
  again.OpenObject(mFile.Id());
  MyVector<double> times;
  MyVector<MyVector<double>> data;
  again.RetrieveData(times, data);
  EXPECT_EQ(times, (MyVector<double>{0, 1, 2}));
  EXPECT_EQ(data, (MyVector<MyVector<double>>{{1, 2, 3}, {}, {4, 5}}));
  EXPECT_EQ(again.RetrieveCoefficients(0), (MyVector<double>{1, 2, 3}));
  EXPECT_EQ(again.RetrieveCoefficients(1), MyVector<double>());
  EXPECT_EQ(again.RetrieveCoefficients(2), (MyVector<double>{4, 5}));
  EXPECT_TRUE(IsReport(ReportOf([&] { again.RetrieveCoefficients(3); }),
                       "filestep < mIndex.GetExtents()[0]",
                       "Access out of bounds.  Requesting filestep=3 in a dataset with only 3"));
  EXPECT_EQ(again.GetDataDescription(), "power");
  again.CloseObject();
}

TEST_F(IndexedGroupTest, TensorsOnChangingMeshes) {
  const auto structure = FindTensorIndexTable(3, "1");
  Tdm tdm("t.tdm", false, 0);
  tdm.Initialize("time", "shift", *structure, 2, false, 4, 8);
  double next = 0;
  const auto append = [&](double time, const MyVector<int>& extents) {
    Tensor<DataMesh> tensor(structure, Mesh(extents));
    for (DataMesh& component : tensor) {
      for (double& value : component) {
        value = next++;
      }
    }
    tdm.Append(time, tensor);
  };
  append(0, {2, 3});
  append(1, {4, 1});
  Tensor<DataMesh> uneven(structure, Mesh({2, 2}));
  uneven[1] = DataMesh(Mesh({3, 1}));
  EXPECT_TRUE(IsReport(ReportOf([&] { tdm.Append(2, uneven); }), "it->Size()==mesh.Size()",
                       "inconsistent sizes in the components of the tensor"));
  EXPECT_TRUE(IsReport(ReportOf([&] { append(2, {4}); }), "mDataMeshDim==data.begin()->Dim()",
                       "Tdm::Append dimension of DataMesh inconsistent"));
  tdm.OpenObject(mFile.Id());
  tdm.WriteCache();
  const Tensor<DataMesh> step = tdm.RetrieveStep(1);
  EXPECT_EQ(step[0].Mesh(), Mesh({4, 1}));
  EXPECT_EQ(step[2][3], 29);
  MyVector<double> times;
  MyVector<Tensor<DataMesh>> data;
  tdm.RetrieveData(times, data);
  EXPECT_EQ(times, (MyVector<double>{0, 1}));
  EXPECT_EQ(data[0][1][5], 11);
  tdm.CloseObject();
  EXPECT_EQ(mFile.ReadTable("t.tdm/index.dat"), (Rows{{0, 18, 2, 3}, {1, 30, 4, 1}}));
  EXPECT_EQ(mFile.ReadStringAttribute("t.tdm", "TensorSpec"),
            (std::vector<std::string>{"TensorDim=3; TensorSymm=1; DataMeshDim=2;"}));

  // A series that is continued keeps its structure.
  for (const auto& [symmetry, dim, message] :
       {std::tuple{"2", 2, "Inconsistency in TensorStructure.\n"},
        std::tuple{"1", 1, "Inconsistency in DataMesh dimension.\n"}}) {
    const auto reopen = [&, s = symmetry, d = dim] {
      Tdm other("t.tdm", true, 0);
      other.Initialize("time", "shift", *FindTensorIndexTable(3, s), d, false, 4, 8);
      other.OpenObject(mFile.Id());
    };
    EXPECT_NE(ReportOf(reopen), "") << message;
  }
}

TEST_F(IndexedGroupTest, SymmetriesThatCannotBeReadBackAreRefused) {
  const auto refusal = [](const std::string& symmetry) {
    Tdm tdm("t.tdm", false, 0);
    const auto structure = FindTensorIndexTable(2, symmetry);
    return ReportOf([&] { tdm.Initialize("t", "x", *structure, 1, false, 4, 8); });
  };
  for (const std::string& symmetry : {std::string("1;2"), std::string("1#"), std::string("1="),
                                      std::string("("), std::string(" 1"), std::string("1\0", 2)}) {
    EXPECT_TRUE(IsReport(refusal(symmetry), "canBeStored", "The symmetry '" + symmetry))
        << symmetry;
  }
  for (char c = ' '; c <= '~'; ++c) {
    const std::string symmetry = std::string("1") + c + "1";
    if (std::string("#;=()").find(c) == std::string::npos) {
      EXPECT_EQ(refusal(symmetry), "");
      const H5_Objects::TensorSpec spec{2, symmetry, 1};
      EXPECT_EQ(H5_Objects::TensorSpec::FromText(spec.Text()).mSymm, symmetry);
    }
  }
}

TEST_F(IndexedGroupTest, IndicesAreCheckedBeforeTheyAreUsed) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::tuple<const char*, Rows, std::size_t> bad[] = {
      {"negative", {{0, -1}, {1, 4}}, 4},  {"nan", {{0, nan}, {1, 4}}, 4},
      {"fraction", {{0, 1.5}, {1, 4}}, 4}, {"decreasing", {{0, 3}, {1, 2}, {2, 4}}, 4},
      {"past", {{0, 2}, {1, 5}}, 4},       {"short", {{0, 2}, {1, 3}}, 4},
      {"huge", {{0, 1e300}}, 4},           {"values without steps", {}, 4}};
  for (const auto& [name, index, values] : bad) {
    const std::string path = std::string(name) + ".coef";
    CoefSet(path, index, values);
    const std::string report = CoefReport(path);
    EXPECT_NE(report.find("H5_ObjectCoef (line"), std::string::npos) << name << report;
    EXPECT_NE(report.find(path), std::string::npos) << name << report;
  }
  CoefSet("empty.coef", {}, 0);
  EXPECT_EQ(CoefReport("empty.coef"), "");
}

TEST_F(IndexedGroupTest, MeshesAndStructuresAreCheckedBeforeTheyAreUsed) {
  const std::vector<std::string> spec = {"TensorDim=3; TensorSymm=1; DataMeshDim=1;"};
  const double nan = std::numeric_limits<double>::quiet_NaN();
  TdmSet("good.tdm", {{0, 6, 2}}, 6, spec);
  EXPECT_EQ(TdmReport("good.tdm"), "");
  int i = 0;
  for (const double extent : {-2., nan, 1e300, 2.5, 3., 4e9, 0.}) {
    const std::string name = "extent" + std::to_string(i++) + ".tdm";
    TdmSet(name, {{0, 6, extent}}, 6, spec);
    EXPECT_NE(TdmReport(name).find("REQUIRE  FAILED"), std::string::npos) << extent;
  }
  const std::vector<std::string> specs[] = {
      {},
      {"TensorDim=3; TensorSymm=1; DataMeshDim=2;"},
      {"TensorDim=3; TensorSymm=1; DataMeshDim=-1;"},
      {"TensorDim=-3; TensorSymm=1; DataMeshDim=1;"},
      {"TensorDim=2000000000; TensorSymm=11; DataMeshDim=1;"},
      {"TensorDim=2; TensorSymm=" + std::string(200, '1') + "; DataMeshDim=1;"},
      {spec[0], spec[0]}};
  for (const std::vector<std::string>& text : specs) {
    const std::string name = "spec" + std::to_string(i++) + ".tdm";
    TdmSet(name, {{0, 6, 2}}, 6, text);
    EXPECT_NE(TdmReport(name).find("REQUIRE  FAILED"), std::string::npos) << i;
  }
}

}  // namespace
