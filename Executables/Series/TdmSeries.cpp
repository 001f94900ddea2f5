#include "Executables/Series/TdmSeries.hpp"

#include <algorithm>
#include <iostream>
#include <sstream>
#include <utility>

using H5_Objects::Tdm;

namespace {

std::string StructureText(const TensorStructure& structure) {
  std::ostringstream text;
  text << structure;
  return text.str();
}

}  // namespace

bool TdmSeries::Agrees(int file, const Tdm& tdm) {
  const TensorStructure& structure = tdm.GetStructure();
  const int dataMeshDim = tdm.GetDataMeshDim();
  if (mAgreement.Groups().empty()) {
    mpStructure = FindTensorIndexTable(structure.Dim(), structure.Symmetry());
    mDataMeshDim = dataMeshDim;
  }
  if (dataMeshDim != mDataMeshDim) {
    mAgreement.Differ("tdm.GetDataMeshDim()==mDataMeshDim", "H5_ObjectTdm",
                      "Tdm::Append dimension of DataMesh inconsistent");
  } else if (!(structure == *mpStructure)) {
    mAgreement.Differ("structure==*mpStructure", "H5_ObjectTdm",
                      "Tdm::Append TensorStructure inconsistent");
  }
  return mAgreement.Add(
      file, StructureText(structure) + " on meshes of dimension " + std::to_string(dataMeshDim));
}

void TdmSeries::TakeIn(int file, Depth depth) {
  Visit<Tdm>(file, [&](const Tdm& tdm) {
    if (Agrees(file, tdm)) {
      TakeInSet(file, tdm, depth, [&tdm] { return tdm.RetrieveCheckedIndex_(); });
    }
  });
}

std::vector<Series::Property> TdmSeries::Properties(bool asInFile) const {
  std::vector<Property> properties = IndexedSeries::Properties(asInFile);
  properties.insert(properties.begin(),
                    {{"tensor structure", StructureText(*mpStructure)},
                     {"dimension of the meshes", std::to_string(mDataMeshDim)}});
  return properties;
}

void TdmSeries::Join(CachedH5File& output) {
  if (mRun.mOptions.mVerbose) {
    std::cout << "working on " << Name() << std::endl;
  }
  IndexedSeries::Join(output);
}

// Tells after which files a segment is full: when the values kept so far exceed what fits in the
// cache, and after the last. The selection is told with the first segment.
void TdmSeries::PrintSelection() const {
  const std::uint64_t segmentLimit = mRun.mOptions.mCacheSize / 8;
  std::uint64_t values = 0;
  bool isFirst = true;
  for (std::size_t i = 0; i < mInputs.size(); ++i) {
    values += mInputs[i].mKeptRows;
    if (values > segmentLimit || i + 1 == mInputs.size()) {
      std::cout << "    trigger output after " << i + 1 << " segments" << std::endl;
      if (std::exchange(isFirst, false)) {
        SteppedSeries::PrintSelection();
      }
      values = 0;
    }
  }
}

void TdmSeries::Write(CachedH5File& output) {
  // A chunk of a mebibyte lets one step be read without inflating the whole series.
  const std::uint64_t longestChunk = 131072;
  auto& tdm = output.GetObjectForWrite<Tdm>(Name());
  tdm.Initialize(mTimeDescription, mDataDescription, *mpStructure, mDataMeshDim,
                 !mRun.mOptions.mNoGzip, Steps().mKept, std::min(KeptRows(), longestChunk));
  WriteTo(output, tdm);
}

void TdmSeries::Describe(int file, Facts& facts) {
  Visit<Tdm>(file, [&facts](const Tdm& tdm) {
    const TensorStructure& structure = tdm.GetStructure();
    facts.mTensor = {structure.Dim(), structure.Symmetry(), tdm.GetDataMeshDim()};
  });
  IndexedSeries::Describe(file, facts);
}
