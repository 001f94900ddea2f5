// The input is the attribute "TensorSpec" of a series. What it says must survive being written
// again, and must make a table of components or a report.
#include <cmath>

#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/Store/H5_ObjectTdm.hpp"
#include "Utils/Tensors/TensorIndexTable.hpp"

using H5_Objects::TensorSpec;

void Fuzz::Target(std::string_view input) {
  TensorSpec spec;
  if (!Succeeds([&] { spec = TensorSpec::FromText(std::string(input)); })) {
    return;
  }
  const auto survives = [&spec] {
    spec.RequireStorable();
    const TensorSpec again = TensorSpec::FromText(spec.Text());
    FUZZ_CHECK(again.mDim == spec.mDim && again.mSymm == spec.mSymm, spec.Text());
    FUZZ_CHECK(again.mDataMeshDim == spec.mDataMeshDim, spec.Text());
  };
  FUZZ_CHECK(Succeeds(survives), spec.Text());
  const std::size_t rank = spec.mSymm.size();
  const bool isTensor =
      rank == 0 || (spec.mDim >= 1 && rank <= TensorIndexTable::MaxRank &&
                    std::pow(spec.mDim, rank) <= TensorIndexTable::MaxFlatEntries);
  FUZZ_CHECK(Succeeds([&] { TensorIndexTable(spec.mDim, spec.mSymm); }) == isTensor, spec.Text());
}
