#include "Utils/HDF5/TestSupport/PlainH5.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>

#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/HDF5/Handle.hpp"

using namespace Vexa_H5;

namespace PlainH5 {

namespace {

hid_t Checked(hid_t id) {
  EXPECT_GE(id, 0);
  return id;
}

PropertyListHandle IntermediateGroups() {
  PropertyListHandle list(Checked(H5Pcreate(H5P_LINK_CREATE)));
  H5Pset_create_intermediate_group(list, 1);
  return list;
}

DatatypeHandle String(std::size_t size = H5T_VARIABLE, H5T_cset_t set = H5T_CSET_ASCII) {
  DatatypeHandle type(Checked(H5Tcopy(H5T_C_S1)));
  H5Tset_size(type, size);
  H5Tset_strpad(type, size == H5T_VARIABLE ? H5T_STR_NULLTERM : H5T_STR_NULLPAD);
  H5Tset_cset(type, set);
  return type;
}

DataspaceHandle Space(const std::vector<hsize_t>& dims, const hsize_t* maxDims = nullptr) {
  return DataspaceHandle(Checked(
      dims.empty() ? H5Screate(H5S_SCALAR)
                   : H5Screate_simple(static_cast<int>(dims.size()), dims.data(), maxDims)));
}

void WriteDataset(hid_t file, const std::string& path, hid_t fileType, hid_t memoryType,
                  hid_t space, const void* values, hid_t creation = H5P_DEFAULT) {
  const DatasetHandle dataset(Checked(H5Dcreate2(file, path.c_str(), fileType, space,
                                                 IntermediateGroups(), creation, H5P_DEFAULT)));
  EXPECT_GE(H5Dwrite(dataset, memoryType, H5S_ALL, H5S_ALL, H5P_DEFAULT, values), 0);
}

void WriteAttribute(hid_t file, const std::string& path, const std::string& name, hid_t type,
                    hsize_t count, const void* values) {
  const DataspaceHandle space = Space({count});
  const AttributeHandle attribute(Checked(H5Acreate_by_name(
      file, path.c_str(), name.c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT)));
  EXPECT_GE(H5Awrite(attribute, type, values), 0);
}

DatasetHandle OpenDataset(hid_t file, const std::string& path) {
  return DatasetHandle(Checked(H5Dopen2(file, path.c_str(), H5P_DEFAULT)));
}

std::vector<const char*> Pointers(const std::vector<std::string>& strings) {
  std::vector<const char*> pointers;
  for (const std::string& text : strings) {
    pointers.push_back(text.c_str());
  }
  return pointers;
}

std::vector<std::string> TakeStrings(hid_t type, hid_t space,
                                     const std::function<herr_t(hid_t, void*)>& read) {
  std::vector<char*> pointers(static_cast<std::size_t>(H5Sget_simple_extent_npoints(space)));
  std::vector<std::string> strings;
  EXPECT_TRUE(pointers.empty() || read(type, pointers.data()) >= 0);
  for (const char* text : pointers) {
    strings.emplace_back(text == nullptr ? "" : text);
  }
  if (!pointers.empty()) {
    H5Dvlen_reclaim(type, space, H5P_DEFAULT, pointers.data());
  }
  return strings;
}

std::vector<hsize_t> SpaceDims(hid_t file, const std::string& path, bool maximum) {
  const DatasetHandle dataset = OpenDataset(file, path);
  const DataspaceHandle space(Checked(H5Dget_space(dataset)));
  std::vector<hsize_t> dims(static_cast<std::size_t>(H5Sget_simple_extent_ndims(space)));
  std::vector<hsize_t> maxDims(dims.size());
  H5Sget_simple_extent_dims(space, dims.data(), maxDims.data());
  return maximum ? maxDims : dims;
}

}  // namespace

TempDir::TempDir() {
  std::string name = (std::filesystem::temp_directory_path() / "vexa-XXXXXX").string();
  EXPECT_NE(mkdtemp(name.data()), nullptr);
  mPath = std::filesystem::canonical(name);
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(mPath, ignored);
}

File File::Create(const std::string& path, bool oldFormat) {
  const PropertyListHandle access(Checked(H5Pcreate(H5P_FILE_ACCESS)));
  H5Pset_libver_bounds(access, oldFormat ? H5F_LIBVER_EARLIEST : H5F_LIBVER_LATEST,
                       H5F_LIBVER_LATEST);
  return File(Checked(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access)));
}

File File::Open(const std::string& path) {
  return File(Checked(H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT)));
}

File::~File() {
  if (mId >= 0) {
    EXPECT_EQ(H5Fget_obj_count(mId, H5F_OBJ_ALL | H5F_OBJ_LOCAL), 1);
    EXPECT_GE(H5Fclose(mId), 0);
  }
}

void File::Group(const std::string& path) {
  const GroupHandle group(
      Checked(H5Gcreate2(mId, path.c_str(), IntermediateGroups(), H5P_DEFAULT, H5P_DEFAULT)));
}

void File::Table(const std::string& path, const Rows& rows, const TableOptions& options,
                 hsize_t columns) {
  const std::vector<hsize_t> dims = {rows.size(), rows.empty() ? columns : rows[0].size()};
  const hsize_t maxDims[2] = {H5S_UNLIMITED, dims[1]};
  const PropertyListHandle list(Checked(H5Pcreate(H5P_DATASET_CREATE)));
  if (!options.mChunk.empty()) {
    H5Pset_chunk(list, 2, options.mChunk.data());
  }
  if (options.mCompress) {
    H5Pset_shuffle(list);
    H5Pset_deflate(list, 1);
    H5Pset_fletcher32(list);
  }
  const DataspaceHandle space = Space(dims, options.mChunk.empty() ? nullptr : maxDims);
  std::vector<double> values;
  for (const std::vector<double>& row : rows) {
    values.insert(values.end(), row.begin(), row.end());
  }
  WriteDataset(mId, path, options.mType < 0 ? H5T_NATIVE_DOUBLE : options.mType, H5T_NATIVE_DOUBLE,
               space, values.data(), list);
  if (!options.mLegend.empty()) {
    StringAttribute(path, "Legend", options.mLegend);
  }
}

void File::Version(const std::string& path, int entries) {
  std::vector<std::string> strings;
  for (int i = 0; i < entries; ++i) {
    strings.push_back("hash" + std::to_string(i));
    strings.push_back("help" + std::to_string(i));
  }
  Strings(path, strings, {static_cast<hsize_t>(entries), 2});
  VersionNumber(path, static_cast<unsigned long long>(entries));
}

void File::VersionNumber(const std::string& path, unsigned long long number) {
  WriteAttribute(mId, path, "Version", H5T_NATIVE_ULLONG, 1, &number);
}

void File::Strings(const std::string& path, const std::vector<std::string>& strings,
                   const std::vector<hsize_t>& dims, H5T_cset_t set) {
  const DatatypeHandle type = String(H5T_VARIABLE, set);
  const PropertyListHandle list(Checked(H5Pcreate(H5P_DATASET_CREATE)));
  const hsize_t chunk[] = {16};
  const hsize_t unlimited[] = {H5S_UNLIMITED};
  if (dims.size() == 1) {
    H5Pset_chunk(list, 1, chunk);
  }
  WriteDataset(mId, path, type, type, Space(dims, dims.size() == 1 ? unlimited : nullptr),
               Pointers(strings).data(), list);
}

void File::Characters(const std::string& path, const std::string& text) {
  WriteDataset(mId, path, H5T_NATIVE_SCHAR, H5T_NATIVE_SCHAR, Space({text.size()}), text.data());
}

void File::StringAttribute(const std::string& path, const std::string& name,
                           const std::vector<std::string>& strings) {
  WriteAttribute(mId, path, name, String(), strings.size(), Pointers(strings).data());
}

void File::FixedStringAttribute(const std::string& path, const std::string& name,
                                const std::vector<std::string>& strings, std::size_t length) {
  std::string bytes(strings.size() * length, '\0');
  for (std::size_t i = 0; i < strings.size(); ++i) {
    bytes.replace(i * length, strings[i].size(), strings[i]);
  }
  WriteAttribute(mId, path, name, String(length), strings.size(), bytes.data());
}

bool File::Has(const std::string& path) const {
  const MuteH5Errors muted;  // over what is missing on the way
  return H5Lexists(mId, path.c_str(), H5P_DEFAULT) > 0;
}

Rows File::ReadTable(const std::string& path) const {
  const std::vector<hsize_t> dims = Dims(path);
  std::vector<double> values(dims[0] * dims[1]);
  const DatasetHandle dataset = OpenDataset(mId, path);
  EXPECT_GE(H5Dread(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()), 0);
  Rows rows;
  for (hsize_t r = 0; r < dims[0]; ++r) {
    rows.emplace_back(values.data() + r * dims[1], values.data() + (r + 1) * dims[1]);
  }
  return rows;
}

std::vector<std::string> File::ReadStrings(const std::string& path) const {
  const DatasetHandle dataset = OpenDataset(mId, path);
  const DataspaceHandle space(Checked(H5Dget_space(dataset)));
  const DatatypeHandle fileType(Checked(H5Dget_type(dataset)));
  return TakeStrings(fileType, space, [&](hid_t type, void* pointers) {
    return H5Dread(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, pointers);
  });
}

H5T_cset_t File::CharacterSet(const std::string& path) const {
  const DatatypeHandle type(Checked(H5Dget_type(OpenDataset(mId, path))));
  return H5Tget_cset(type);
}

std::vector<std::string> File::ReadStringAttribute(const std::string& path,
                                                   const std::string& name) const {
  const AttributeHandle attribute(
      Checked(H5Aopen_by_name(mId, path.c_str(), name.c_str(), H5P_DEFAULT, H5P_DEFAULT)));
  const DataspaceHandle space(Checked(H5Aget_space(attribute)));
  return TakeStrings(String(), space, [&](hid_t type, void* pointers) {
    return H5Aread(attribute, type, pointers);
  });
}

std::vector<hsize_t> File::Dims(const std::string& path) const {
  return SpaceDims(mId, path, false);
}

std::vector<hsize_t> File::MaxDims(const std::string& path) const {
  return SpaceDims(mId, path, true);
}

std::vector<hsize_t> File::Chunk(const std::string& path) const {
  const DatasetHandle dataset = OpenDataset(mId, path);
  const PropertyListHandle list(Checked(H5Dget_create_plist(dataset)));
  std::vector<hsize_t> chunk(Dims(path).size());
  EXPECT_GE(H5Pget_chunk(list, static_cast<int>(chunk.size()), chunk.data()), 0);
  return chunk;
}

std::vector<H5Z_filter_t> File::Filters(const std::string& path) const {
  const DatasetHandle dataset = OpenDataset(mId, path);
  const PropertyListHandle list(Checked(H5Dget_create_plist(dataset)));
  std::vector<H5Z_filter_t> filters;
  for (int i = 0; i < H5Pget_nfilters(list); ++i) {
    unsigned flags = 0;
    std::size_t values = 0;
    unsigned config = 0;
    filters.push_back(H5Pget_filter2(list, static_cast<unsigned>(i), &flags, &values, nullptr, 0,
                                     nullptr, &config));
  }
  return filters;
}

unsigned File::SuperblockVersion() const {
  H5F_info2_t info;
  EXPECT_GE(H5Fget_info2(mId, &info), 0);
  return info.super.version;
}

std::string Bytes(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::string ReportOf(const std::function<void()>& action) {
  const MuteH5Errors muted;
  try {
    action();
  } catch (const CodeError& error) {
    return error.Message();
  }
  return "";
}

bool IsReport(const std::string& report, const std::string& condition, const std::string& message) {
  const std::string head =
      "\n#######################  REQUIRE  FAILED  #######################\n#### " + condition;
  const std::size_t afterHead = report.find('\n', head.size());
  const std::size_t messageBegin =
      afterHead == std::string::npos ? afterHead : report.find('\n', afterHead + 1);
  return report.compare(0, head.size(), head) == 0 && messageBegin != std::string::npos &&
         report.compare(messageBegin + 1, message.size(), message) == 0;
}

}  // namespace PlainH5
