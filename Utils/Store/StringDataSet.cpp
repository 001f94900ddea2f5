#include "Utils/Store/StringDataSet.hpp"

#include "Utils/ErrorHandling/OnFailure.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/ExternalFiles.hpp"
#include "Utils/HDF5/H5Type.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/HDF5/NumberType.hpp"
#include "Utils/HDF5/ObjectHeader.hpp"
#include "Utils/Tables/Storage.hpp"

namespace H5_Objects {

StringDataSet::~StringDataSet() {
  const Vexa::ReportAs label(mLabel);
  if (Vexa::MayCheckInDestructor()) {
    REQUIRE_FOR_CALLER(not IsObjectOpen(), "Encountered destructor while object still open");
  }
  CloseSilently();
}

void StringDataSet::OpenObject(hid_t parentGroupId) {
  const Vexa::ReportAs label(mLabel);
  const bool h5_exists = LinkExists(parentGroupId, mName, mTrace);
  RequireConsistentExistence(h5_exists);
  mTrace.Line(5, mTraceName, " open ", mName);
  if (h5_exists) {
    mMy_id = mTrace(5, H5Dopen2(parentGroupId, mName.c_str(), Vexa_H5::DatasetAccess()),
                    "H5Dopen2(", parentGroupId, ", \"", mName, "\")");
    Vexa_H5::NoteOpened(mMy_id);
    REQUIRE_FOR_CALLER(mMy_id>=0, "H5Dopen2 failed");
    Vexa_H5::RequireSoundHeader(mMy_id);
    Vexa_H5::RequireStringsOrNumbers(mMy_id, mName);
    Vexa_H5::PropertyListHandle cparms_id(H5Dget_create_plist(mMy_id));
    REQUIRE_FOR_CALLER(cparms_id>=0, "H5Dget_create_plist failed");
    Tables::RequireOwnStorage(cparms_id, mName);
    TakeExisting(FileExtents());
  } else {
    std::vector<hsize_t> dims;
    std::vector<hsize_t> chunk;
    Shape(dims, chunk);
    Vexa_H5::DatatypeHandle type_id(H5Type<std::string>());
    const herr_t err = H5Tset_cset(type_id, CharacterSet());
    REQUIRE_FOR_CALLER(err>=0, "H5Tset_cset failed");
    mMy_id = Create(parentGroupId, mName, dims, chunk, type_id, false);
    type_id.Close(mTrace, "H5Tclose(type_id)", "status==0");
    AttachAttributes();
    mExistsInFile = true;
  }
  mIsKnown = true;
}

void StringDataSet::CloseObject() {
  const Vexa::ReportAs label(mLabel);
  REQUIRE_FOR_CALLER(IsObjectOpen(), "Calling CloseObject on closed " << mLabel + 3 << "!");
  Close();
}

Vexa_H5::DatatypeHandle StringDataSet::MemoryType() const {
  Vexa_H5::DatatypeHandle file_type_id(mTrace(5, H5Dget_type(mMy_id), "H5Dget_type(", mMy_id, ")"));
  REQUIRE_FOR_CALLER(file_type_id>=0, "H5Dget_type failed");
  REQUIRE_FOR_CALLER(H5Tis_variable_str(file_type_id)>0,
                     "Cannot append to " << mName
                     << ", whose elements are not strings of variable length");
  Vexa_H5::DatatypeHandle type_id(H5Type<std::string>());
  // The library does not convert strings of one character set to another.
  herr_t status = H5Tset_cset(type_id, H5Tget_cset(file_type_id));
  REQUIRE_FOR_CALLER(status>=0, "H5Tset_cset failed");
  file_type_id.Close(mTrace, "H5Tclose(file_type_id)", "status==0");
  return type_id;
}

void StringDataSet::WriteStrings(const std::vector<hsize_t>& dims,
                                 const std::vector<hsize_t>& start,
                                 const std::vector<hsize_t>& count,
                                 const std::vector<const char*>& strings) {
  const Vexa::ReportAs label(mLabel);
  Vexa_H5::DatatypeHandle type_id = MemoryType();
  Extend(dims, "H5Dextent failed");
  std::vector<hsize_t> dimsBefore = dims;
  dimsBefore[0] = start[0];
  const OnFailure putBack([&] { PutBack(dimsBefore); });
  WriteBlock(start, count, type_id, strings.data());
  type_id.Close(mTrace, "H5Tclose(type_id)", "status==0");
}

}  // namespace H5_Objects
