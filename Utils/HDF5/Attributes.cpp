#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "Utils/ErrorHandling/OnFailure.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/ErrorHandling/Trace.hpp"
#include "Utils/HDF5/CharacterSet.hpp"
#include "Utils/HDF5/H5Type.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/HDF5/StoredChunks.hpp"
#include "Utils/HDF5/StringElements.hpp"

using namespace Vexa_H5;

namespace {

// An attribute lies in the file whole, so a claim beyond the file's size is damage.
void RequireRoomInFile(hid_t attr, hid_t id, hsize_t count, const std::string& name) {
  const hsize_t fileSize = FileSizeOf(id);
  const hsize_t attributeSize = H5Aget_storage_size(attr);
  // A file in the making has its attributes in memory still; what is small is never damage.
  const hsize_t most = std::max<hsize_t>(fileSize, 65536);
  // The number of elements besides: its product with their size may have overflowed.
  REQUIRE(attributeSize <= most && count <= most,
          "Attribute " << name << " claims " << count << " elements in " << attributeSize
                       << " bytes, more than its file has");
}

struct OpenedAttribute {
  AttributeHandle mAttribute;
  DataspaceHandle mSpace;
  hsize_t mCount = 0;
};

// Opens a one-dimensional attribute. The handle is empty if the attribute is absent and may be.
// Reports about one of strings show the same conditions with other names.
OpenedAttribute OpenAttribute(hid_t id, const std::string& name, bool allowMissing, bool hasStrings,
                              const Trace& trace) {
  OpenedAttribute opened;
  const htri_t flag = trace(5, H5Aexists(id, name.c_str()), "H5Aexists(", id, ", \"", name, "\")");
  if (flag == 0 && allowMissing) {
    return opened;
  }
  const htri_t exists = hasStrings ? 1 : flag;
  REQUIRE(exists>=0, "Attribute " << name << " not found");
  REQUIRE(flag>=0, "Attribute " << name << " not found");
  AttributeHandle attr(
      trace(5, H5Aopen(id, name.c_str(), H5P_DEFAULT), "H5Aopen(", id, ", \"", name, "\")"));
  REQUIRE(attr>=0, "H5Aopen failed");
  DataspaceHandle space(trace(5, H5Aget_space(attr), "H5Aget_space(", hid_t(attr), ")"));
  REQUIRE(space>=0, "H5Aget_space failed");
  const int ndims = H5Sget_simple_extent_ndims(space);
  const int legend_ndims = hasStrings ? ndims : 1;
  REQUIRE(legend_ndims==1, "Dimensionality of Attribute is wrong");
  REQUIRE(ndims==1, "Dimensionality of Attribute is wrong");
  trace(5, H5Sget_simple_extent_dims(space, &opened.mCount, nullptr), "H5Sget_simple_extent_dims(",
        hid_t(space), ")");
  RequireRoomInFile(attr, id, opened.mCount, name);
  opened.mAttribute = std::move(attr);
  opened.mSpace = std::move(space);
  return opened;
}

void CloseAttribute(AttributeHandle& attr, DataspaceHandle& space, const Trace& trace) {
  attr.Close(trace, "H5Aclose(attr)");
  space.Close(trace, "H5Sclose(space)");
}

// Creates a one-dimensional attribute and writes it in one call.
void WriteAttribute(hid_t id, const std::string& name, hsize_t count, hid_t fileType,
                    hid_t memoryType, const void* values, const Trace& trace) {
  DataspaceHandle space_id(
      trace(5, H5Screate_simple(1, &count, nullptr), "H5Screate_simple(1, {", count, "}, NULL)"));
  REQUIRE(space_id>=0, "H5Screate_simple failed");
  AttributeHandle attr_id(
      trace(4, H5Acreate2(id, name.c_str(), fileType, space_id, H5P_DEFAULT, H5P_DEFAULT),
            "H5Acreate2(", id, ", \"", name, "\", ", fileType, "...)"));
  REQUIRE(attr_id>=0, "H5Acreate2 failed");
  // An empty list has no address, which the library takes for a mistake.
  const void* wdata = count == 0 ? &count : values;
  const herr_t err = trace(5, H5Awrite(attr_id, memoryType, wdata), "H5Awrite(", hid_t(attr_id),
                           ", ", memoryType, ", wdata)");
  REQUIRE(0==err, "H5Awrite failed");
  CloseAttribute(attr_id, space_id, trace);
}

std::string FixedLengthString(const char* text, std::size_t size, H5T_str_t padding) {
  std::string result(text, strnlen(text, size));
  if (padding == H5T_STR_SPACEPAD) {
    result.erase(result.find_last_not_of(' ') + 1);
  }
  return result;
}

}  // namespace

void Vexa_H5::AttachStringsToAttributes(hid_t id, const std::string& name,
                                        const MyVector<std::string>& list, int verbosity) {
  const Vexa::ReportAs label("H5_Utils");
  const Trace trace(verbosity);
  REQUIRE(id>=0, "oops -- internal error");
  DatatypeHandle type_id(trace(5, H5Tcopy(H5T_FORTRAN_S1), "H5Tcopy(H5T_FORTRAN_S1)"));
  REQUIRE(type_id>=0, "oops");
  herr_t err = trace(5, H5Tset_size(type_id, HdfConst::H5T_Variable()),
                     "H5Tset_size(type, HdfConst::H5T_Variable())");
  REQUIRE(0==err, "H5Tset_size failed");
  DatatypeHandle memtype_id(trace(5, H5Tcopy(H5T_C_S1), "H5Tcopy(H5T_C_S1)"));
  REQUIRE(memtype_id>=0, "H5Tcopy failed");
  err = trace(5, H5Tset_size(memtype_id, HdfConst::H5T_Variable()),
              "H5Tset_size(memtype, HdfConst::H5T_Variable())");
  REQUIRE(0==err, "H5Tset_size failed");
  const H5T_cset_t characterSet =
      CharacterSetOf(std::vector<std::string_view>(list.begin(), list.end()));
  err = std::min(H5Tset_cset(type_id, characterSet), H5Tset_cset(memtype_id, characterSet));
  REQUIRE(0==err, "H5Tset_cset failed");
  std::vector<const char*> wdata;
  wdata.reserve(list.size());
  for (const std::string& text : list) {
    wdata.push_back(text.c_str());
  }
  WriteAttribute(id, name, wdata.size(), type_id, memtype_id, wdata.data(), trace);
  memtype_id.Close(trace, "H5Tclose(memtype)");
  type_id.Close(trace, "H5Tclose(type)");
}

MyVector<std::string> Vexa_H5::RetrieveStringsFromAttributes(hid_t id, const std::string& name,
                                                             bool allowMissing, int verbosity) {
  const Vexa::ReportAs label("H5_Utils");
  const Trace trace(verbosity);
  OpenedAttribute opened = OpenAttribute(id, name, allowMissing, true, trace);
  if (opened.mAttribute < 0) {
    return {};
  }
  DatatypeHandle fileType(H5Aget_type(opened.mAttribute));
  REQUIRE(fileType>=0, "H5Aget_type failed");
  const auto read = [&](hid_t memoryType, void* buffer) {
    return opened.mCount == 0 ? 0
                              : trace(5, H5Aread(opened.mAttribute, memoryType, buffer), "H5Aread(",
                                      hid_t(opened.mAttribute), ", ", memoryType, ", rdata)");
  };
  const std::vector<std::string> strings =
      ReadStrings(opened.mAttribute, fileType, opened.mSpace, opened.mCount, read,
                  {"H5Aread to read Legend of dat-set failed", "h5Dvlen_reclaim failed"});
  CloseAttribute(opened.mAttribute, opened.mSpace, trace);
  return MyVector<std::string>(strings);
}

template <>
void Vexa_H5::AttachAttributes(hid_t id, const std::string& name,
                               const std::vector<unsigned long>& values, int verbosity) {
  const Vexa::ReportAs label("H5_Utils");
  const Trace trace(verbosity);
  REQUIRE(id>=0, "oops -- internal error");
  const hid_t type_id = H5Type<unsigned long>();
  REQUIRE(type_id>=0, "oops");
  WriteAttribute(id, name, values.size(), type_id, type_id, values.data(), trace);
}

template <>
std::vector<unsigned long> Vexa_H5::RetrieveAttributes(hid_t id, const std::string& name,
                                                       bool allowMissing, int verbosity) {
  const Vexa::ReportAs label("H5_Utils");
  const Trace trace(verbosity);
  OpenedAttribute opened = OpenAttribute(id, name, allowMissing, false, trace);
  if (opened.mAttribute < 0) {
    return {};
  }
  std::vector<unsigned long> values(opened.mCount, 0);
  const herr_t err =
      values.empty() ? 0
                     : trace(5, H5Aread(opened.mAttribute, H5Type<unsigned long>(), values.data()),
                             "H5Aread(", hid_t(opened.mAttribute), ", ...)");
  REQUIRE(0==err, "H5Aread failed, err=" << err);
  CloseAttribute(opened.mAttribute, opened.mSpace, trace);
  return values;
}

std::vector<std::string> Vexa_H5::ReadStrings(hid_t object_id, hid_t fileType, hid_t space_id,
                                              std::size_t count, const ReadCall& read,
                                              const StringReadMessages& messages) {
  REQUIRE_FOR_CALLER(H5Tget_class(fileType)==H5T_STRING,
                     messages.mRead << ": expected strings, found another type");
  const H5T_cset_t characterSet = H5Tget_cset(fileType);
  REQUIRE_FOR_CALLER(characterSet==H5T_CSET_ASCII || characterSet==H5T_CSET_UTF8,
                     "Unknown character set " << static_cast<int>(characterSet));
  const bool isVariable = H5Tis_variable_str(fileType) > 0;
  DatatypeHandle memtype_id(H5Tcopy(isVariable ? H5T_C_S1 : fileType));
  REQUIRE_FOR_CALLER(memtype_id>=0, "H5Tcopy failed");
  std::vector<std::string> result;
  result.reserve(count);
  if (isVariable) {
    // The library would turn other elements into characters without a word.
    REQUIRE_FOR_CALLER(ConsistsOfCharacters(fileType),
                       messages.mRead << ": the strings do not consist of characters");
    if (GlobalHeap heap(object_id, messages.mRead); heap.CanRead()) {
      return ReadStringsOfHeap(heap, object_id, count, read, messages.mRead);
    }
    herr_t err = H5Tset_size(memtype_id, HdfConst::H5T_Variable());
    REQUIRE_FOR_CALLER(0==err, "H5Tset_size failed");
    err = H5Tset_cset(memtype_id, characterSet);
    REQUIRE_FOR_CALLER(0==err, "H5Tset_cset failed");
    // The strings come as pointers that the library allocated, and are given back whatever happens.
    std::vector<char*> rdata(count, nullptr);
    const auto reclaim = [&] {
      std::vector<char*> pointers = std::exchange(rdata, {});
      // The library takes an empty buffer for a mistake.
      return pointers.empty() ? 0
                              : H5Dvlen_reclaim(memtype_id, space_id, H5P_DEFAULT, pointers.data());
    };
    const OnFailure giveBack([&] { reclaim(); });
    err = read(memtype_id, rdata.data());
    REQUIRE_FOR_CALLER(0==err, messages.mRead);
    for (const char* text : rdata) {
      result.emplace_back(text == nullptr ? "" : text);
    }
    err = reclaim();
    REQUIRE_FOR_CALLER(0==err, messages.mReclaim);
  } else {
    const std::size_t size = H5Tget_size(fileType);
    const H5T_str_t padding = H5Tget_strpad(fileType);
    std::vector<char> rdata(size * count);
    const herr_t err = read(memtype_id, rdata.data());
    REQUIRE_FOR_CALLER(0==err, messages.mRead);
    for (std::size_t i = 0; i < count; ++i) {
      result.push_back(FixedLengthString(rdata.data() + i * size, size, padding));
    }
  }
  return result;
}
