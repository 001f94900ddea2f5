// The input is the attribute "TensorSpec" of a series. What it says must survive being written
// again, and must make a table of components or a report.
#include <algorithm>
#include <cmath>

#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/Store/H5_ObjectTdm.hpp"
#include "Utils/Tensors/TensorIndexTable.hpp"

namespace {

using H5_Objects::TensorSpec;

// The product, over the groups of symmetric slots, of the ways to choose as many values of an index
// as there are slots, in any order and with repeats.
std::int64_t Components(std::int64_t dim, const std::string& symm) {
  std::int64_t components = 1;
  for (std::size_t slot = 0; slot < symm.size(); ++slot) {
    if (symm.find(symm[slot]) == slot) {
      std::int64_t ways = 1;
      const std::int64_t slots = std::count(symm.begin(), symm.end(), symm[slot]);
      for (std::int64_t i = 1; i <= slots; ++i) {
        ways = ways * (dim + i - 1) / i;
      }
      components *= ways;
    }
  }
  return components;
}

void CheckTable(const TensorIndexTable& table) {
  const std::string& symm = table.Symmetry();
  FUZZ_CHECK(table.NumberOfComponents() == Components(table.Dim(), symm), symm);
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

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(Fuzz::Text(data, size));
  TensorSpec spec;
  if (!Fuzz::Succeeds([&] { spec = TensorSpec::FromText(text); })) {
    return 0;
  }
  FUZZ_CHECK(Fuzz::Succeeds([&] {
               spec.RequireStorable();
               const TensorSpec again = TensorSpec::FromText(spec.Text());
               FUZZ_CHECK(again.mDim == spec.mDim && again.mSymm == spec.mSymm &&
                              again.mDataMeshDim == spec.mDataMeshDim,
                          spec.Text());
             }),
             spec.Text());
  const std::size_t rank = spec.mSymm.size();
  const double entries = std::pow(spec.mDim, rank);
  const bool isTensor = rank == 0 || (spec.mDim >= 1 && rank <= TensorIndexTable::MaxRank &&
                                      entries <= TensorIndexTable::MaxFlatEntries);
  const bool succeeds = Fuzz::Succeeds([&] { CheckTable({spec.mDim, spec.mSymm}); });
  FUZZ_CHECK(succeeds == isTensor, text);
  return 0;
}
