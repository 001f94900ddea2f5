#include "Utils/HDF5/H5_Utils.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <numeric>
#include <optional>
#include <sstream>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/ErrorHandling/Trace.hpp"
#include "Utils/HDF5/CharacterSet.hpp"
#include "Utils/HDF5/CommittingDriver.hpp"
#include "Utils/HDF5/ExternalFiles.hpp"
#include "Utils/HDF5/H5Type.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/Library.hpp"
#include "Utils/HDF5/StoredChunks.hpp"
#include "Utils/HDF5/StringElements.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Process/SystemError.hpp"

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
OpenedAttribute OpenAttribute(hid_t id, const std::string& name, bool allowMissing,
                              const Trace& trace) {
  OpenedAttribute opened;
  const htri_t flag = trace(5, H5Aexists(id, name.c_str()), "H5Aexists(", id, ", \"", name, "\")");
  if (flag == 0 && allowMissing) {
    return opened;
  }
  REQUIRE(flag>=0, "Attribute " << name << " not found");
  AttributeHandle attr(
      trace(5, H5Aopen(id, name.c_str(), H5P_DEFAULT), "H5Aopen(", id, ", \"", name, "\")"));
  REQUIRE(attr>=0, "H5Aopen failed");
  DataspaceHandle space(trace(5, H5Aget_space(attr), "H5Aget_space(", hid_t(attr), ")"));
  REQUIRE(space>=0, "H5Aget_space failed");
  const int ndims = H5Sget_simple_extent_ndims(space);
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

// Strings of variable length come as pointers that the library allocated; they are given back
// whatever happens.
class VariableLengthBuffer {
 public:
  VariableLengthBuffer(hid_t memoryType, hid_t space, std::size_t count)
      : mPointers(count, nullptr), mMemoryType(memoryType), mSpace(space) {}
  ~VariableLengthBuffer() { Reclaim(); }
  VariableLengthBuffer(const VariableLengthBuffer&) = delete;
  VariableLengthBuffer& operator=(const VariableLengthBuffer&) = delete;

  herr_t Reclaim() {
    // The library takes an empty buffer for a mistake.
    const herr_t err =
        mPointers.empty() ? 0 : H5Dvlen_reclaim(mMemoryType, mSpace, H5P_DEFAULT, mPointers.data());
    mPointers.clear();
    return err;
  }
  std::vector<char*> mPointers;

 private:
  hid_t mMemoryType;
  hid_t mSpace;
};

std::string FixedLengthString(const char* text, std::size_t size, H5T_str_t padding) {
  std::string result(text, strnlen(text, size));
  if (padding == H5T_STR_SPACEPAD) {
    result.erase(result.find_last_not_of(' ') + 1);
  }
  return result;
}

// What the library holds of a dataset of a file that is only read goes when the dataset is closed,
// so that reading many datasets takes no more memory than reading one. A file that is open already,
// as an input to which an external link leads can be, must be opened again in the same way.
herr_t EvictOnClose(unsigned flags, hid_t fapl_id) {
  return (flags & H5F_ACC_RDWR) != 0 ? 0 : H5Pset_evict_on_close(fapl_id, true);
}

// Where the library looks for the file of an external link: in the folders of an environment
// variable, beside the file with the link and beside what that is a link to, and in the current
// folder; of an absolute path that leads nowhere, it looks for the last part.
std::vector<std::string> PlacesOf(const std::string& childFile, const std::string& parentFile) {
  std::error_code ignored;
  std::vector<std::filesystem::path> folders = {
      ".", std::filesystem::path(parentFile).parent_path(),
      std::filesystem::canonical(parentFile, ignored).parent_path()};
  if (const char* prefixes = std::getenv("HDF5_EXT_PREFIX")) {
    std::istringstream stream(prefixes);
    for (std::string prefix; std::getline(stream, prefix, ':');) {
      folders.emplace_back(prefix);
    }
  }
  std::vector<std::string> places = {childFile};
  const std::string name =
      childFile.starts_with('/') ? childFile.substr(childFile.rfind('/') + 1) : childFile;
  for (const std::filesystem::path& folder : folders) {
    places.push_back(folder / name);
  }
  return places;
}

// Called before an external link is followed; a negative answer makes the library fail.
herr_t PrepareForExternalFile(const char* parentFile, const char*, const char* childFile,
                              const char*, unsigned* flags, hid_t fapl_id, void*) {
  try {
    const std::vector<std::string> places = PlacesOf(childFile, parentFile);
    for (const std::string& path : places) {
      if (FileExists(path) && !IsRegularFile(path)) {
        return -1;
      }
    }
    Vexa_H5::NoteExternalLink(parentFile, places);
    return EvictOnClose(*flags, fapl_id);
  } catch (...) {
    return -1;  // an exception must not pass through the library
  }
}

// A file that this process has just created and could not fill. What is larger than a file without
// objects has taken its place.
void RemoveNewFile(const std::string& path) {
  std::error_code ignored;
  constexpr std::uintmax_t mostBytes = 4096;
  if (std::filesystem::symlink_status(path, ignored).type() ==
          std::filesystem::file_type::regular &&
      std::filesystem::file_size(path, ignored) <= mostBytes) {
    std::filesystem::remove(path, ignored);
  }
}

hid_t MakeGuardedAccess(hid_t propertyListClass) {
  PropertyListHandle list(H5Pcreate(propertyListClass));
  REQUIRE(list>=0, "H5Pcreate failed");
  const herr_t err = H5Pset_elink_cb(list, PrepareForExternalFile, nullptr);
  REQUIRE(err>=0, "H5Pset_elink_cb failed");
  return list.Release();
}

hid_t MakeFileAccess(H5AccessType access, bool staysReadable) {
  PropertyListHandle fapl_id(H5Pcreate(H5P_FILE_ACCESS));
  REQUIRE(fapl_id>=0, "H5Pcreate(H5P_FILE_ACCESS) failed: " << hid_t(fapl_id));
  Vexa_H5::set_libver_bounds(fapl_id);
  const herr_t err = EvictOnClose(access == ReadOnly ? H5F_ACC_RDONLY : H5F_ACC_RDWR, fapl_id);
  REQUIRE(err>=0, "H5Pset_evict_on_close failed: " << err);
  if (staysReadable && access == ReadWrite) {
    Vexa_H5::UseCommittingDriver(fapl_id);
  }
  return fapl_id.Release();
}

// The list with which files are opened, which is kept: a simulation opens its files again and
// again.
hid_t FileAccess(H5AccessType access, bool staysReadable) {
  static Vexa_H5::KeptId lists[2][2];
  return lists[access == ReadOnly ? 1 : 0][staysReadable ? 1 : 0].Get(
      [&] { return MakeFileAccess(access, staysReadable); });
}

// Kept too, so that nothing stands between a failing creation and what the library says about it.
hid_t FileCreation() {
  static Vexa_H5::KeptId list;
  return list.Get([] { return Vexa_H5::UntimedCreation(H5P_FILE_CREATE).Release(); });
}

}  // namespace

hid_t Vexa_H5::GroupAccess() {
  static KeptId access;
  return access.Get([] { return MakeGuardedAccess(H5P_GROUP_ACCESS); });
}

hid_t Vexa_H5::DatasetAccess() {
  static KeptId access;
  return access.Get([] { return MakeGuardedAccess(H5P_DATASET_ACCESS); });
}

void Vexa_H5::set_libver_bounds(hid_t fapl_id) {
  const H5F_libver_t low = H5F_LIBVER_V18;
  const H5F_libver_t high = H5F_LIBVER_LATEST;
  const herr_t err = H5Pset_libver_bounds(fapl_id, low, high);
  REQUIRE(err>=0, "H5Pset_libver_bounds(fapl_id," << static_cast<int>(low) << " , "
          << static_cast<int>(high) << ") failed: " << err);
}

PropertyListHandle Vexa_H5::UntimedCreation(hid_t propertyListClass) {
  PropertyListHandle cparms_id(H5Pcreate(propertyListClass));
  REQUIRE_FOR_CALLER(cparms_id>=0, "H5Pcreate failed");
  const herr_t err = H5Pset_obj_track_times(cparms_id, false);
  REQUIRE_FOR_CALLER(0==err, "H5Pset_obj_track_times failed");
  return cparms_id;
}

hid_t Vexa_H5::CreateFile(const std::string& path, int verbosity, bool staysReadable) {
  const ReportAs label("H5_Utils");
  const Trace trace(verbosity);
  const hid_t fapl_id = FileAccess(ReadWrite, staysReadable);
  const hid_t file_id = trace(4, H5Fcreate(path.c_str(), H5F_ACC_EXCL, FileCreation(), fapl_id),
                              "H5Fcreate(", path, ")");
  if (file_id < 0) {
    const std::optional<int> error = SystemErrorOf("open file");
    const bool isTaken = SystemErrorOf("lock file") == EWOULDBLOCK;
    if (!error && !isTaken) {
      // What the library leaves can be a file without objects that opens well.
      RemoveNewFile(path);
    }
    REQUIRE(file_id>=0, "H5Fcreate(" << path << ", ...) failed"
            << (error ? ": " + StrError(*error) : ""));
  }
  return file_id;
}

std::optional<std::uint64_t> Vexa_H5::SizeWhenClosed(const FileDescriptor& file) {
  // HDF5 File Format Specification, "Superblock" of version 2 with addresses of 8 bytes.
  unsigned char superblock[48];
  constexpr std::size_t version = 8;
  constexpr std::size_t addressBytes = 9;
  constexpr std::size_t endOfFile = 28;
  if (!file.Read(0, superblock, sizeof superblock) || superblock[version] != 2 ||
      superblock[addressBytes] != 8) {
    return std::nullopt;
  }
  std::uint64_t size = 0;
  for (std::size_t i = 8; i-- > 0;) {
    size = size << 8 | superblock[endOfFile + i];
  }
  return size;
}

hid_t Vexa_H5::OpenFile(const std::string& path, H5AccessType access, int verbosity,
                        bool staysReadable, LockWait* wait) {
  const ReportAs label("H5_Utils");
  if (!FileExists(path)) {
    REQUIRE(access==ReadWrite,
            "Attempting to create non-existent file '" << path << "' in ReadOnly mode");
    const hid_t file_id = CreateFile(path, verbosity, staysReadable);
    if (wait != nullptr) {
      wait->mIsNew = wait->mIsCreated = true;
    }
    return file_id;
  }
  REQUIRE(IsRegularFile(path), "'" << path << "' is not a regular file");
  const Trace trace(verbosity);
  const bool isToBeRead = access == ReadOnly;
  bool isNew = false;
  const auto open = [&](hid_t fapl_id) {
    // Who waits for another program may find in the end what that one made of an empty file.
    isNew = !isToBeRead && staysReadable && IsEmptyFile(path);
    if (!isNew) {
      return trace(4, H5Fopen(path.c_str(), isToBeRead ? H5F_ACC_RDONLY : H5F_ACC_RDWR, fapl_id),
                   "H5Fopen(", path, ")");
    }
    // The committing driver truncates nothing.
    return trace(4, H5Fcreate(path.c_str(), H5F_ACC_TRUNC, FileCreation(), fapl_id), "H5Fcreate(",
                 path, ")");
  };
  const hid_t file_id =
      OpenPastLocks(path, open, FileAccess(access, staysReadable), isToBeRead ? nullptr : wait);
  const bool isLocked = file_id < 0 && wait != nullptr && wait->mIsLocked;
  if (isLocked && wait->mMayStayLocked) {
    return file_id;
  }
  REQUIRE(file_id>=0, (isNew ? "H5Fcreate(" : "H5Fopen(")
          << path << ", ...) failed"
          << (isLocked ? ": another program has the file locked" : ""));
  if (wait != nullptr) {
    wait->mIsNew = isNew;
  }
  return file_id;
}

void Vexa_H5::AttachStringsToAttributes(hid_t id, const std::string& name,
                                        const MyVector<std::string>& list, int verbosity) {
  const ReportAs label("H5_Utils");
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
  const ReportAs label("H5_Utils");
  const Trace trace(verbosity);
  OpenedAttribute opened = OpenAttribute(id, name, allowMissing, trace);
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
  const ReportAs label("H5_Utils");
  const Trace trace(verbosity);
  REQUIRE(id>=0, "oops -- internal error");
  const hid_t type_id = H5Type<unsigned long>();
  REQUIRE(type_id>=0, "oops");
  WriteAttribute(id, name, values.size(), type_id, type_id, values.data(), trace);
}

template <>
std::vector<unsigned long> Vexa_H5::RetrieveAttributes(hid_t id, const std::string& name,
                                                       bool allowMissing, int verbosity) {
  const ReportAs label("H5_Utils");
  const Trace trace(verbosity);
  OpenedAttribute opened = OpenAttribute(id, name, allowMissing, trace);
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

MyVector<std::string> Vexa_H5::ReadGroupNames(hid_t group_id, int verbosity) {
  const ReportAs label("H5_Utils");
  const Trace trace(verbosity);
  // A damaged tree of links can lead back into itself: there are no more than the file has bytes.
  struct {
    std::vector<std::string> mNames;
    std::uint64_t mMost;
  } list = {{}, std::max<std::uint64_t>(FileSizeOf(group_id), 65536)};
  const auto append = [](hid_t, const char* name, const H5L_info_t*, void* data) -> herr_t {
    auto& [names, most] = *static_cast<decltype(list)*>(data);
    try {
      names.emplace_back(name);
    } catch (...) {
      return -1;  // an exception must not pass through the library
    }
    return names.size() <= most ? 0 : -1;
  };
  const herr_t err =
      trace(5, H5Literate(group_id, H5_INDEX_NAME, H5_ITER_INC, nullptr, append, &list),
            "H5Literate(", group_id, ")");
  REQUIRE(err==0, "H5Literate failed on id=" << group_id);
  return MyVector<std::string>(list.mNames);
}

std::vector<hsize_t> Vexa_H5::Extents(hid_t space_id) {
  const int ndims = H5Sget_simple_extent_ndims(space_id);
  REQUIRE_FOR_CALLER(ndims>=0, "H5Sget_simple_extent_ndims failed");
  std::vector<hsize_t> dims(static_cast<std::size_t>(ndims));
  if (ndims > 0) {
    const int err = H5Sget_simple_extent_dims(space_id, dims.data(), nullptr);
    REQUIRE_FOR_CALLER(err>=0, "H5Sget_simple_extent_dims failed");
  }
  return dims;
}

std::vector<std::string> Vexa_H5::ReadStrings(hid_t object_id, hid_t fileType, hid_t space_id,
                                              std::size_t count,
                                              const std::function<herr_t(hid_t, void*)>& read,
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
    // Of other elements the library would make characters without a word.
    REQUIRE_FOR_CALLER(ConsistsOfCharacters(fileType),
                       messages.mRead << ": the strings do not consist of characters");
    RequireStringsInFile(object_id, count, messages.mRead);
    herr_t err = H5Tset_size(memtype_id, HdfConst::H5T_Variable());
    REQUIRE_FOR_CALLER(0==err, "H5Tset_size failed");
    err = H5Tset_cset(memtype_id, characterSet);
    REQUIRE_FOR_CALLER(0==err, "H5Tset_cset failed");
    VariableLengthBuffer rdata(memtype_id, space_id, count);
    err = read(memtype_id, rdata.mPointers.data());
    REQUIRE_FOR_CALLER(0==err, messages.mRead);
    for (const char* text : rdata.mPointers) {
      result.emplace_back(text == nullptr ? "" : text);
    }
    err = rdata.Reclaim();
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

void Vexa_H5::RequirePlausibleSize(long double claimed, std::uint64_t stored,
                                   const std::string& name) {
  // Deflate reaches 1032 to 1 at most; filters that others use store constants in less.
  const long double harmless = 64.0L * 1024 * 1024;
  const long double largest = std::max(harmless, 20000.0L * static_cast<long double>(stored));
  REQUIRE_FOR_CALLER(claimed<=largest, name << " claims " << static_cast<double>(claimed)
                     << " bytes of values, but only " << stored
                     << " bytes are stored");
}
