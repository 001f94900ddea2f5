#include "Utils/HDF5/TestSupport/PlainH5.hpp"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <ranges>
#include <sstream>

#include "Utils/ErrorHandling/TestSupport/ReportOf.hpp"
#include "Utils/HDF5/Handle.hpp"

using namespace Vexa_H5;

namespace PlainH5 {

namespace {

hid_t Checked(hid_t id) {
  EXPECT_GE(id, 0);
  return id;
}

PropertyListHandle IntermediateGroups() {
  PropertyListHandle list(H5Pcreate(H5P_LINK_CREATE));
  H5Pset_create_intermediate_group(list, 1);
  return list;
}

DatatypeHandle String(H5T_cset_t set = H5T_CSET_ASCII) {
  DatatypeHandle type(H5Tcopy(H5T_C_S1));
  H5Tset_size(type, H5T_VARIABLE);
  H5Tset_cset(type, set);
  return type;
}

void WriteDataset(hid_t file, const std::string& path, hid_t type, const Dims& dims,
                  const void* values, const Dims& chunk = {}, hid_t creation = -1) {
  const PropertyListHandle list(creation < 0 ? H5Pcreate(H5P_DATASET_CREATE) : H5Pcopy(creation));
  Dims maxDims = dims;
  if (!chunk.empty()) {
    H5Pset_chunk(list, static_cast<int>(chunk.size()), chunk.data());
    maxDims[0] = H5S_UNLIMITED;
  }
  const DataspaceHandle space(
      dims.empty() ? H5Screate(H5S_SCALAR)
                   : H5Screate_simple(static_cast<int>(dims.size()), dims.data(), maxDims.data()));
  const DatasetHandle dataset(Checked(
      H5Dcreate2(file, path.c_str(), type, space, IntermediateGroups(), list, H5P_DEFAULT)));
  EXPECT_GE(H5Dwrite(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, values), 0);
}

void WriteAttribute(hid_t file, const std::string& path, const std::string& name, hid_t type,
                    hsize_t count, const void* values) {
  const DataspaceHandle space(H5Screate_simple(1, &count, nullptr));
  const AttributeHandle attribute(Checked(H5Acreate_by_name(
      file, path.c_str(), name.c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT)));
  EXPECT_GE(H5Awrite(attribute, type, values), 0);
}

DatasetHandle OpenDataset(hid_t file, const std::string& path) {
  return DatasetHandle(Checked(H5Dopen2(file, path.c_str(), H5P_DEFAULT)));
}

std::vector<const char*> Pointers(const Strings& strings) {
  std::vector<const char*> pointers(strings.size());
  std::ranges::transform(strings, pointers.begin(), &std::string::c_str);
  return pointers;
}

Strings TakeStrings(hid_t type, hid_t space, const std::function<herr_t(void*)>& read) {
  std::vector<char*> pointers(static_cast<std::size_t>(H5Sget_simple_extent_npoints(space)));
  Strings strings;
  if (!pointers.empty()) {
    EXPECT_GE(read(pointers.data()), 0);
    strings.assign(pointers.begin(), pointers.end());
    H5Dvlen_reclaim(type, space, H5P_DEFAULT, pointers.data());
  }
  return strings;
}

}  // namespace

TempDir::TempDir() {
  std::string name = (std::filesystem::temp_directory_path() / "vexa-XXXXXX").string();
  EXPECT_NE(mkdtemp(name.data()), nullptr);
  mPath = std::filesystem::canonical(name);
}

File File::Create(const std::string& path, bool oldFormat) {
  const PropertyListHandle access(H5Pcreate(H5P_FILE_ACCESS));
  H5Pset_libver_bounds(access, oldFormat ? H5F_LIBVER_EARLIEST : H5F_LIBVER_LATEST,
                       H5F_LIBVER_LATEST);
  return File(Checked(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access)));
}

File File::Open(const std::string& path, unsigned access) {
  return File(Checked(H5Fopen(path.c_str(), access, H5P_DEFAULT)));
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
  const PropertyListHandle list(H5Pcreate(H5P_DATASET_CREATE));
  if (options.mCompress) {
    H5Pset_shuffle(list);
    H5Pset_deflate(list, 1);
    H5Pset_fletcher32(list);
  }
  std::vector<double> values;
  std::ranges::copy(rows | std::views::join, std::back_inserter(values));
  WriteDataset(mId, path, H5T_NATIVE_DOUBLE, {rows.size(), rows.empty() ? columns : rows[0].size()},
               values.data(), options.mChunk, list);
  if (!options.mLegend.empty()) {
    StringAttribute(path, "Legend", options.mLegend);
  }
}

void File::Version(const std::string& path, int entries, const std::string& help) {
  PlainH5::Strings strings;
  for (int i = 0; i < 2 * entries; ++i) {
    strings.push_back((i % 2 == 0 ? "hash" : help) + std::to_string(i / 2));
  }
  Strings(path, strings, {static_cast<hsize_t>(entries), 2});
  const auto number = static_cast<unsigned long long>(entries);
  WriteAttribute(mId, path, "Version", H5T_NATIVE_ULLONG, 1, &number);
}

void File::Strings(const std::string& path, const PlainH5::Strings& strings,
                   const PlainH5::Dims& dims, H5T_cset_t set) {
  const DatatypeHandle type = String(set);
  WriteDataset(mId, path, type, dims, Pointers(strings).data(),
               dims.size() == 1 ? PlainH5::Dims{16} : PlainH5::Dims{});
}

void File::Characters(const std::string& path, const std::string& text) {
  WriteDataset(mId, path, H5T_NATIVE_SCHAR, {text.size()}, text.data());
}

void File::StringAttribute(const std::string& path, const std::string& name,
                           const PlainH5::Strings& strings) {
  WriteAttribute(mId, path, name, String(), strings.size(), Pointers(strings).data());
}

bool File::Has(const std::string& path) const {
  const MuteH5Errors muted;  // over what is missing on the way
  return H5Lexists(mId, path.c_str(), H5P_DEFAULT) > 0;
}

Rows File::ReadTable(const std::string& path) const {
  const PlainH5::Dims dims = Dims(path);
  Rows rows(dims[0]);
  std::vector<double> values(dims[0] * dims[1]);
  EXPECT_GE(H5Dread(OpenDataset(mId, path), H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT,
                    values.data()),
            0);
  for (hsize_t r = 0; r < dims[0]; ++r) {
    rows[r].assign(values.data() + r * dims[1], values.data() + (r + 1) * dims[1]);
  }
  return rows;
}

Strings File::ReadStrings(const std::string& path) const {
  const DatasetHandle dataset = OpenDataset(mId, path);
  const DatatypeHandle type(H5Dget_type(dataset));
  return TakeStrings(type, DataspaceHandle(H5Dget_space(dataset)), [&](void* pointers) {
    return H5Dread(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, pointers);
  });
}

H5T_cset_t File::CharacterSet(const std::string& path) const {
  return H5Tget_cset(DatatypeHandle(H5Dget_type(OpenDataset(mId, path))));
}

Strings File::ReadStringAttribute(const std::string& path, const std::string& name) const {
  const AttributeHandle attribute(Checked(H5Aopen_by_name(mId, path.c_str(), name.c_str(), 0, 0)));
  const DatatypeHandle type(H5Aget_type(attribute));
  return TakeStrings(type, DataspaceHandle(H5Aget_space(attribute)),
                     [&](void* pointers) { return H5Aread(attribute, type, pointers); });
}

Dims File::Dims(const std::string& path) const {
  const DataspaceHandle space(H5Dget_space(OpenDataset(mId, path)));
  PlainH5::Dims dims(static_cast<std::size_t>(H5Sget_simple_extent_ndims(space)));
  H5Sget_simple_extent_dims(space, dims.data(), nullptr);
  return dims;
}

std::string Bytes(const std::string& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

std::string ReportOf(const std::function<void()>& action) {
  const MuteH5Errors muted;
  return ::ReportOf(action);
}

void ExpectReport(const std::function<void()>& action, const std::string& condition,
                  const std::string& message) {
  const std::string report = ReportOf(action);
  EXPECT_NE(report.find("\n#### " + condition), std::string::npos) << message << report;
  EXPECT_NE(report.find(")\n" + message), std::string::npos) << message << report;
}

}  // namespace PlainH5
