#include "Utils/Store/DataSet.hpp"

#include <algorithm>
#include <cstring>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/ExternalFiles.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/HDF5/ObjectHeader.hpp"
#include "Utils/HDF5/SetCompressionH5.hpp"

namespace H5_Objects {

bool LinkExists(hid_t parentId, const std::string& name, haddr_t address, const Trace& trace) {
  if (name == "/" || address != HADDR_UNDEF) {
    return true;
  }
  const htri_t answer = trace(4, H5Lexists(parentId, name.c_str(), H5P_DEFAULT), "H5Lexists(",
                              parentId, ", \"", name, "\")");
  REQUIRE_FOR_CALLER(answer>=0, "H5Lexists failed on '" << name << "'");
  return answer > 0;
}

hid_t OpenAt(hid_t parentId, haddr_t address, H5I_type_t type, const Trace& trace) {
  Vexa_H5::Handle<H5Oclose> id(trace(4, H5Oopen_by_addr(parentId, address), "H5Oopen_by_addr(",
                                     parentId, ", ", address, ")"));
  return id >= 0 && H5Iget_type(id) == type ? id.Release() : hid_t{-1};
}

DataSet::~DataSet() {
  if (mMy_id >= 0) {
    H5Dclose(mMy_id);
  }
}

void DataSet::RequireConsistentExistence(bool h5_exists) {
  mExistsInFile = mIsExistenceKnown ? mExistsInFile : h5_exists;
  mIsExistenceKnown = true;
  REQUIRE_FOR_CALLER(h5_exists==mExistsInFile,
                     "Existence of group is inconsistently reported by h5-library and\nH5_Node.  mName="
                         << mName << ", h5_exists=" << h5_exists << ", mExistsInFile="
                     << mExistsInFile);
}

void DataSet::Open(hid_t parentId, const std::string& linkName, int traceLevel,
                   const std::string& failure) {
  mMy_id = mAddress != HADDR_UNDEF
               ? OpenAt(parentId, mAddress, H5I_DATASET, mTrace)
               : mTrace(traceLevel, H5Dopen2(parentId, linkName.c_str(), Vexa_H5::DatasetAccess()),
                        "H5Dopen2(", parentId, ", \"", linkName, "\")");
  Vexa_H5::NoteOpened(mMy_id);
  REQUIRE_FOR_CALLER(mMy_id>=0, failure);
  Vexa_H5::RequireSoundHeader(mMy_id);
}

std::vector<hsize_t> DataSet::ExtentsInFile() const {
  REQUIRE_FOR_CALLER(IsObjectOpen(), "Object must be open");
  Vexa_H5::DataspaceHandle dataspace_id(
      mTrace(5, H5Dget_space(mMy_id), "H5Dget_space(", mMy_id, ")"));
  REQUIRE_FOR_CALLER(dataspace_id>=0, "H5Dget_space failed");
  std::vector<hsize_t> dims = Vexa_H5::Extents(dataspace_id);
  dataspace_id.Close(mTrace, "H5Sclose(dataspace_id)");
  return dims;
}

std::vector<std::string> DataSet::MissingParts() const {
  const std::string own = OwnAttribute();
  const std::vector<std::string> names = Vexa_H5::AttributeNames(mMy_id, mTrace.Verbosity());
  const bool isThere = own.empty() || std::ranges::find(names, own) != names.end();
  return isThere ? std::vector<std::string>() : std::vector{"attribute '" + own + "'"};
}

Tables::Storage DataSet::Storage() const {
  const Vexa::ReportAs label("H5_DataSet");
  REQUIRE(IsObjectOpen(), "Object must be open");
  return Tables::ReadStorage(mMy_id);
}

bool DataSet::IsFileWritable() const {
  const Vexa::ReportAs label("H5_DataSet");
  Vexa_H5::Handle<H5Fclose> file_id(H5Iget_file_id(mMy_id));
  REQUIRE(file_id>=0, "H5Iget_file_id failed");
  unsigned intent = H5F_ACC_RDONLY;
  herr_t err = H5Fget_intent(file_id, &intent);
  REQUIRE(err>=0, "H5Fget_intent failed");
  return (intent & H5F_ACC_RDWR) != 0;
}

hid_t DataSet::Create(hid_t parentId, const std::string& linkName, const std::vector<hsize_t>& dims,
                      const std::vector<hsize_t>& chunk, hid_t type_id, bool compress) const {
  const int rank = static_cast<int>(dims.size());
  std::vector<hsize_t> maxDims = dims;
  maxDims[0] = H5S_UNLIMITED;
  Vexa_H5::DataspaceHandle dataspace_id(mTrace(
      5, H5Screate_simple(rank, dims.data(), maxDims.data()), "H5Screate_simple(", rank, ", ...)"));
  REQUIRE_FOR_CALLER(dataspace_id>=0, "H5Screate_simple failed");
  Vexa_H5::PropertyListHandle cparms_id = Vexa_H5::UntimedCreation(H5P_DATASET_CREATE);
  herr_t err = mTrace(5, H5Pset_chunk(cparms_id, rank, chunk.data()), "H5Pset_chunk(cparms_id, {",
                      chunk[0], ", ...})");
  REQUIRE_FOR_CALLER(0==err, "H5P_set_chunk failed");
  if (compress) {
    SetCompressionH5(cparms_id, 1, linkName);
  }
  Vexa_H5::DatasetHandle dataset_id(
      mTrace(4,
             H5Dcreate2(parentId, linkName.c_str(), type_id, dataspace_id, H5P_DEFAULT, cparms_id,
                        H5P_DEFAULT),
             "H5Dcreate2(", parentId, ", \"", linkName, "\", ...)"));
  REQUIRE_FOR_CALLER(dataset_id>=0, "H5Dcreate2 failed");
  cparms_id.Close(mTrace, "H5Pclose(cparms_id)", "status==0");
  dataspace_id.Close(mTrace, "H5Sclose(dataspace_id)", "status==0");
  return dataset_id.Release();
}

void DataSet::Extend(const std::vector<hsize_t>& dims, const char* message) const {
  const herr_t err = mTrace(4, H5Dset_extent(mMy_id, dims.data()), "H5Dset_extent(", mMy_id, ", {",
                            dims[0], ", ...})");
  REQUIRE_FOR_CALLER(err>=0, message);
}

void DataSet::PutBack(const std::vector<hsize_t>& dims) const noexcept {
  const Vexa_H5::MuteH5Errors mute;
  H5Dset_extent(mMy_id, dims.data());
}

void DataSet::CloseObject() {
  const Vexa::ReportAs label(mLabel);
  const char* const kind = mLabel + std::strlen("H5_");
  REQUIRE_FOR_CALLER(IsObjectOpen(), "Calling CloseObject on closed " << kind << "!");
  const herr_t err = mTrace(5, H5Dclose(mMy_id), "H5Dclose(", mMy_id, ")");
  mMy_id = -1;
  REQUIRE_FOR_CALLER(0==err, "H5Dclose failed");
}

}  // namespace H5_Objects
