#include "Utils/Store/StringDataSet.hpp"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "Utils/ErrorHandling/OnFailure.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/CharacterSet.hpp"
#include "Utils/HDF5/H5Type.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/HDF5/NumberType.hpp"
#include "Utils/Store/InsideStore.hpp"
#include "Utils/Tables/ChunkReader.hpp"
#include "Utils/Tables/Storage.hpp"

namespace H5_Objects {

StringDataSet::~StringDataSet() {
  const Vexa::ReportAs label(mLabel);
  if (Vexa::MayCheckInDestructor()) {
    REQUIRE_FOR_CALLER(not IsObjectOpen(), "Encountered destructor while object still open");
  }
}

void StringDataSet::OpenObject(hid_t parentGroupId) {
  const Vexa::ReportAs label(mLabel);
  const bool h5_exists = LinkExists(parentGroupId, mName, mAddress, mTrace);
  RequireConsistentExistence(h5_exists);
  mTrace.Line(5, mTraceName, " open ", mName);
  if (h5_exists) {
    Open(parentGroupId, mName, 5, "H5Dopen2 failed");
    Vexa_H5::RequireStringsOrNumbers(mMy_id, mName);
    Vexa_H5::PropertyListHandle cparms_id(H5Dget_create_plist(mMy_id));
    REQUIRE_FOR_CALLER(cparms_id>=0, "H5Dget_create_plist failed");
    Tables::RequireOwnStorage(cparms_id, mName);
    const std::vector<hsize_t> dims = ExtentsInFile();
    mSize = dims.empty() ? 1 : dims[0];
    TakeExisting(dims);
    mRowsFlushed = mIsKnown ? mRowsFlushed : mSize;
  } else {
    const std::vector<std::string> strings = WaitingStrings();
    Vexa_H5::DatatypeHandle type_id(H5Type<std::string>());
    const herr_t err = H5Tset_cset(type_id, Vexa_H5::CharacterSetOf(std::vector<std::string_view>(
                                                strings.begin(), strings.end())));
    REQUIRE_FOR_CALLER(err>=0, "H5Tset_cset failed");
    mMy_id = Create(parentGroupId, mName, Shape(0), mChunk, type_id, false);
    type_id.Close(mTrace, "H5Tclose(type_id)", "status==0");
    AttachAttributes();
    mSize = 0;
    mExistsInFile = true;
  }
  mIsKnown = true;
}

void StringDataSet::RolledBack(bool isFileNew) {
  DataSet::RolledBack(isFileNew);
  mSize = mRowsFlushed = isFileNew ? 0 : mRowsFlushed;
}

void StringDataSet::WriteCache() {
  const Vexa::ReportAs label(mLabel);
  const Vexa::InsideStore inside;
  mTrace.Line(5, mTraceName, " WriteCache ", mName);
  REQUIRE_FOR_CALLER(IsObjectOpen(), "Consistency error: Called WriteCache on a closed object");
  if (SizeOfCache() > 0) {
    const std::vector<std::string> strings = WaitingStrings();
    RequireWritable(strings);
    AppendRows(strings);
    DropCache();
  }
}

std::vector<hsize_t> StringDataSet::Shape(hsize_t rows) const {
  std::vector<hsize_t> shape = mChunk;
  shape[0] = rows;
  return shape;
}

// Extends the open dataset and writes the strings to its end, in the character set of the dataset.
// If that fails, the dataset is as long as before.
void StringDataSet::AppendRows(const std::vector<std::string>& strings) {
  Vexa_H5::DatatypeHandle file_type_id(mTrace(5, H5Dget_type(mMy_id), "H5Dget_type(", mMy_id, ")"));
  REQUIRE_FOR_CALLER(file_type_id>=0, "H5Dget_type failed");
  REQUIRE_FOR_CALLER(H5Tis_variable_str(file_type_id)>0,
                     "Cannot append to " << mName
                     << ", whose elements are not strings of variable length");
  Vexa_H5::DatatypeHandle type_id(H5Type<std::string>());
  // The library does not convert strings of one character set to another.
  const herr_t status = H5Tset_cset(type_id, H5Tget_cset(file_type_id));
  REQUIRE_FOR_CALLER(status>=0, "H5Tset_cset failed");
  file_type_id.Close(mTrace, "H5Tclose(file_type_id)", "status==0");
  const std::size_t columns = mChunk.size() == 1 ? 1 : mChunk[1];
  const hsize_t rows = strings.size() / columns;
  Extend(Shape(mSize + rows), "H5Dextent failed");
  const OnFailure putBack([this] { PutBack(Shape(mSize)); });
  WriteRows(type_id, Shape(rows), strings);
  type_id.Close(mTrace, "H5Tclose(type_id)", "status==0");
  mSize += rows;
}

void StringDataSet::WriteRows(hid_t type_id, const std::vector<hsize_t>& count,
                              const std::vector<std::string>& strings) const {
  std::vector<hsize_t> start(count.size(), 0);
  start[0] = mSize;
  Vexa_H5::DataspaceHandle filespace_id(
      mTrace(5, H5Dget_space(mMy_id), "H5Dget_space(", mMy_id, ")"));
  REQUIRE_FOR_CALLER(filespace_id>=0, "H5Dget_space failed");
  herr_t err = mTrace(5,
                      H5Sselect_hyperslab(filespace_id, H5S_SELECT_SET, start.data(), nullptr,
                                          count.data(), nullptr),
                      "H5Sselect_hyperslab(filespace_id, ...)");
  REQUIRE_FOR_CALLER(err>=0, "H5Sselect_hyperslab failed");
  Vexa_H5::DataspaceHandle memspace_id(
      mTrace(5, H5Screate_simple(static_cast<int>(count.size()), count.data(), nullptr),
             "H5Screate_simple(", count.size(), ", ...)"));
  REQUIRE_FOR_CALLER(memspace_id>=0, "H5Screate_simple failed");
  std::vector<const char*> wdata;
  std::ranges::transform(strings, std::back_inserter(wdata), &std::string::c_str);
  err = mTrace(4, H5Dwrite(mMy_id, type_id, memspace_id, filespace_id, H5P_DEFAULT, wdata.data()),
               "H5Dwrite(", mMy_id, ", ...)");
  REQUIRE_FOR_CALLER(err>=0, "H5Dwrite failed");
  memspace_id.Close(mTrace, "H5Sclose(memspace_id)");
  filespace_id.Close(mTrace, "H5Sclose(filespace_id)");
}

std::vector<std::string> StringDataSet::ReadAllStrings(std::size_t count) const {
  const Vexa_H5::DataspaceHandle dataspace_id(
      mTrace(5, H5Dget_space(mMy_id), "H5Dget_space(", mMy_id, ")"));
  REQUIRE_FOR_CALLER(dataspace_id>=0, "H5Dget_space failed");
  const auto npoints = H5Sget_simple_extent_npoints(dataspace_id);
  REQUIRE_FOR_CALLER(npoints>=0 && static_cast<std::size_t>(npoints)==count,
                     "dataset-size inconsistent with expected size");
  return ReadSelected(count, dataspace_id, dataspace_id);
}

std::vector<std::string> StringDataSet::ReadFirstStrings(std::size_t count) const {
  const Vexa_H5::DataspaceHandle filespace_id(
      mTrace(5, H5Dget_space(mMy_id), "H5Dget_space(", mMy_id, ")"));
  REQUIRE_FOR_CALLER(filespace_id>=0, "H5Dget_space failed");
  const hsize_t start = 0;
  const hsize_t rows = count;
  const herr_t err =
      mTrace(5, H5Sselect_hyperslab(filespace_id, H5S_SELECT_SET, &start, nullptr, &rows, nullptr),
             "H5Sselect_hyperslab(filespace_id, ...)");
  REQUIRE_FOR_CALLER(err>=0, "H5Sselect_hyperslab failed");
  const Vexa_H5::DataspaceHandle memspace_id(
      mTrace(5, H5Screate_simple(1, &rows, nullptr), "H5Screate_simple(1, ...)"));
  REQUIRE_FOR_CALLER(memspace_id>=0, "H5Screate_simple failed");
  return ReadSelected(count, memspace_id, filespace_id);
}

std::vector<std::string> StringDataSet::ReadSelected(std::size_t count, hid_t memspace_id,
                                                     hid_t filespace_id) const {
  const Vexa::InsideStore inside;
  Vexa_H5::DatatypeHandle my_dtype_id(mTrace(5, H5Dget_type(mMy_id), "H5Dget_type(", mMy_id, ")"));
  REQUIRE_FOR_CALLER(my_dtype_id>0, "H5Dget_type failed");
  std::vector<std::string> strings;
  if (count == 0) {
    REQUIRE_FOR_CALLER(H5Tget_class(my_dtype_id)==H5T_STRING, mName << " is of another type");
  } else {
    REQUIRE_FOR_CALLER(H5Tis_variable_str(my_dtype_id)>0 || H5Tget_class(my_dtype_id)!=H5T_STRING,
                       "H5Dread failed: " << mName << " has strings of fixed length");
    // An empty string takes so much of the library's memory and ours together.
    const long double bytesOfString = 280;
    Tables::RequireSoundStorage(mMy_id, bytesOfString * static_cast<long double>(count), mName);
    const auto read = [&](hid_t memoryType, void* buffer) {
      return mTrace(4, H5Dread(mMy_id, memoryType, memspace_id, filespace_id, H5P_DEFAULT, buffer),
                    "H5Dread(", mMy_id, ", ...)");
    };
    strings = Vexa_H5::ReadStrings(mMy_id, my_dtype_id, memspace_id, count, read,
                                   {"H5Dread failed", "H5Dvlen_reclaim failed"});
  }
  my_dtype_id.Close(mTrace, "H5Tclose(my_dtype_id)", "status==0");
  return strings;
}

}  // namespace H5_Objects
