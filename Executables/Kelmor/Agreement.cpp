#include "Executables/Kelmor/Agreement.hpp"

#include "Utils/ErrorHandling/Require.hpp"

void TableAgreement::Take(const H5_Objects::Dat& dat) {
  if (mLegend.empty()) {
    Ncols = static_cast<int>(dat.GetExtents()[1]);
    REQUIRE(Ncols>0, "Dataset " << mName << " has no columns");
  }
  REQUIRE(Ncols==static_cast<int>(dat.GetExtents()[1]),
          "Dataset " << mName << " has different number of columns\nin different files.");
  if (mLegend.empty() || mLegend[0] == "undefined") {
    mLegend = dat.GetLegend();
  }
}

void TensorAgreement::Take(const H5_Objects::Tdm& tdm) {
  const TensorStructure& structure = tdm.GetStructure();
  if (mpStructure == nullptr) {
    mpStructure = FindTensorIndexTable(structure.Dim(), structure.Symmetry());
    mDataMeshDim = tdm.GetDataMeshDim();
  }
  REQUIRE_LABELLED("H5_ObjectTdm", __LINE__, tdm.GetDataMeshDim()==mDataMeshDim,
                   "Tdm::Append dimension of DataMesh inconsistent\n"
                       << "Dataset " << mName << " has meshes of " << tdm.GetDataMeshDim()
                       << " dimension(s); in files before of " << mDataMeshDim);
  REQUIRE_LABELLED("H5_ObjectTdm", __LINE__, structure==*mpStructure,
                   "Tdm::Append TensorStructure inconsistent\n"
                       << "Dataset " << mName << " has the structure " << structure
                       << "; in files before " << *mpStructure);
}

void VersionAgreement::Take(const H5_Objects::Version& ver) {
  if (mIsFirst) {
    version_number = ver.GetCurrentVersion();
    version_history = ver.RetrieveVersionHistory();
    mIsFirst = false;
    return;
  }
  REQUIRE(ver.GetCurrentVersion() == version_number,
          "Version mismatch '" << mName << "': " << ver.GetCurrentVersion() << " "
                               << version_number);
  REQUIRE(ver.RetrieveVersionHistory() == version_history,
          "Version mismatch '" << mName << "' in history: " << ver.GetCurrentVersion() << " "
                               << version_number);
}

void RequireNoSimilarRecord(const CachedH5File& file, const std::string& name) {
  // A name without glob characters matches no other.
  if (name.find_first_of("*?|") == std::string::npos || file.Exists(name)) {
    return;
  }
  const ReportContext context(name, file.Filename());
  const MyVector<std::string> data_sets = file.GetNames(name, true);
  REQUIRE(data_sets.size()==0, "Version information '"
                                   << name << "' not found in all h5 files.\n"
                                   << "Cannot join h5 files with different versions\n");
}

std::string TextOf(H5_Objects::Txt& txt) {
  std::string part = txt.RetrieveData();
  // Only arrays of characters can hold one; the output's strings end at it.
  REQUIRE(part.find('\0')==std::string::npos, "The text holds a null character");
  return part;
}
