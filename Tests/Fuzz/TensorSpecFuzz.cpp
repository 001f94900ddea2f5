// The input is the attribute "TensorSpec" of a series. What it says must survive being written
// again, and must make a table of components or a report.
#include <algorithm>
#include <cmath>

#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/Store/H5_ObjectTdm.hpp"
#include "Utils/Tensors/TensorIndexTable.hpp"

namespace {

using H5_Objects::TensorSpec;

void CheckTable(const TensorIndexTable& table) {
  const std::string& symm = table.Symmetry();
  MyVector<int> indices(MV::Size(symm.size()), 0);
  FUZZ_CHECK(table.Index(indices) == 0, symm);
  std::fill(indices.begin(), indices.end(), table.Dim() - 1);
  FUZZ_CHECK(table.Index(indices) == table.NumberOfComponents() - 1, symm);
  for (std::size_t slot = 0; slot < symm.size(); ++slot) {
    indices[slot] = static_cast<int>(slot) * 7 % table.Dim();
  }
  const int component = table.Index(indices);
  for (std::size_t j = 0; j < symm.size(); ++j) {
    for (std::size_t k = j + 1; k < symm.size(); ++k) {
      std::swap(indices[j], indices[k]);
      const bool isSame = table.Index(indices) == component;
      FUZZ_CHECK(isSame || symm[j] != symm[k], symm);
      std::swap(indices[j], indices[k]);
    }
  }
}

}  // namespace

void Fuzz::Target(std::string_view input) {
  TensorSpec spec;
  if (!Succeeds([&] { spec = TensorSpec::FromText(std::string(input)); })) {
    return;
  }
  TensorSpec again;
  FUZZ_CHECK(Succeeds([&] {
               spec.RequireStorable();
               again = TensorSpec::FromText(spec.Text());
             }),
             spec.Text());
  FUZZ_CHECK(again.mDim == spec.mDim && again.mSymm == spec.mSymm &&
                 again.mDataMeshDim == spec.mDataMeshDim,
             spec.Text());
  const std::size_t rank = spec.mSymm.size();
  const bool isTensor =
      rank == 0 || (spec.mDim >= 1 && rank <= TensorIndexTable::MaxRank &&
                    std::pow(spec.mDim, rank) <= TensorIndexTable::MaxFlatEntries);
  FUZZ_CHECK(Succeeds([&] { CheckTable({spec.mDim, spec.mSymm}); }) == isTensor, spec.Text());
}
