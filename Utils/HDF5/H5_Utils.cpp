#include "Utils/HDF5/H5_Utils.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>
#include <sstream>
#include <utility>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/ErrorHandling/Trace.hpp"
#include "Utils/HDF5/CommittingDriver.hpp"
#include "Utils/HDF5/ExternalFiles.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/Library.hpp"
#include "Utils/HDF5/LittleEndian.hpp"
#include "Utils/HDF5/OutputDriver.hpp"
#include "Utils/HDF5/StoredChunks.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Process/SystemError.hpp"
#include "Utils/Process/WorkerPool.hpp"

using namespace Vexa_H5;
using Vexa::IsRegularFile;  // its call stands in a report as it is written

namespace {

// What the library holds of a dataset of a file that is only read goes when the dataset is closed,
// so that reading many datasets takes no more memory than reading one. A file that is open already,
// as an input to which an external link leads can be, must be opened again in the same way.
// Parallel builds of the library refuse to do so; memory grows with them.
herr_t EvictOnClose([[maybe_unused]] unsigned flags, [[maybe_unused]] hid_t fapl_id) {
#ifdef H5_HAVE_PARALLEL
  return 0;
#else
  return (flags & H5F_ACC_RDWR) != 0 ? 0 : H5Pset_evict_on_close(fapl_id, true);
#endif
}

// Returns where the library looks for the file of an external link: in the folders of an
// environment variable, beside the file with the link and beside what that is a link to, and in the
// current folder. If an absolute path leads nowhere, the library looks for its last part.
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

// The library calls this before it follows an external link, and fails on a negative answer.
herr_t PrepareForExternalFile(const char* parentFile, const char*, const char* childFile,
                              const char*, unsigned* flags, hid_t fapl_id, void*) {
  try {
    const std::vector<std::string> places = PlacesOf(childFile, parentFile);
    for (const std::string& path : places) {
      if (FileExists(path) && !Vexa::IsRegularFile(path)) {
        return -1;
      }
    }
    NoteExternalLink(parentFile, places);
    return EvictOnClose(*flags, fapl_id);
  } catch (...) {
    return -1;  // an exception must not pass through the library
  }
}

// Names that the library hands to a callback.
class NameList {
 public:
  explicit NameList(hid_t object_id)
      : mMost(std::max<std::uint64_t>(FileSizeOf(object_id), 65536)) {}
  // Returns what the callback is to return.
  herr_t Append(const char* name, haddr_t address) noexcept {
    try {
      mMembers.push_back({name, address});
    } catch (...) {
      return -1;  // an exception must not pass through the library
    }
    return mMembers.size() <= mMost ? 0 : -1;
  }

  std::vector<Vexa_H5::GroupMember> mMembers;

 private:
  // A damaged tree of names can lead back into itself: there are no more than the file has bytes.
  std::uint64_t mMost;
};

std::vector<std::string> NamesOf(const std::vector<Vexa_H5::GroupMember>& members) {
  std::vector<std::string> names;
  std::ranges::transform(members, std::back_inserter(names), &Vexa_H5::GroupMember::mName);
  return names;
}

// Removes a file that this process has just created and could not fill. A file that is larger than
// one without objects has taken its place, and stays.
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

// Returns the property list with which files are opened. It is kept, since a simulation opens its
// files again and again.
hid_t FileAccess(H5AccessType access, bool staysReadable) {
  static KeptId lists[2][2];
  return lists[access == ReadOnly ? 1 : 0][staysReadable ? 1 : 0].Get([&] {
    PropertyListHandle fapl_id(H5Pcreate(H5P_FILE_ACCESS));
    REQUIRE(fapl_id>=0, "H5Pcreate(H5P_FILE_ACCESS) failed: " << hid_t(fapl_id));
    set_libver_bounds(fapl_id);
    herr_t err = EvictOnClose(access == ReadOnly ? H5F_ACC_RDONLY : H5F_ACC_RDWR, fapl_id);
    REQUIRE(err>=0, "H5Pset_evict_on_close failed: " << err);
    // What HDF5 keeps of the chunks of a dataset that is open; by itself, HDF5 2 keeps 8 MiB.
    constexpr std::size_t chunks = 521, bytes = 1024 * 1024;
    err = H5Pset_cache(fapl_id, /*ignored*/ 0, chunks, bytes, /*preemption*/ 0.75);
    REQUIRE(err>=0, "H5Pset_cache failed: " << err);
    if (staysReadable && access == ReadWrite) {
      SetCommittingDriver(fapl_id);
    } else if (access == ReadWrite && Vexa::NumberOfThreads() > 1) {
      SetOutputDriver(fapl_id);
    }
    return fapl_id.Release();
  });
}

// This list is kept too, so that no call comes between a failing creation and what the library says
// about it.
hid_t FileCreation() {
  static KeptId list;
  return list.Get([] { return UntimedCreation(H5P_FILE_CREATE).Release(); });
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
  const Vexa::ReportAs label("H5_Utils");
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

std::optional<std::uint64_t> Vexa_H5::SizeWhenClosed(const Vexa::FileDescriptor& file) {
  // HDF5 File Format Specification, "Superblock" of version 2 with addresses of 8 bytes.
  unsigned char superblock[48];
  constexpr std::size_t version = 8;
  constexpr std::size_t addressBytes = 9;
  constexpr std::size_t endOfFile = 28;
  if (!file.Read(0, superblock, sizeof superblock) || superblock[version] != 2 ||
      superblock[addressBytes] != 8) {
    return std::nullopt;
  }
  return LittleEndian(superblock + endOfFile, 8);
}

hid_t Vexa_H5::OpenFile(const std::string& path, H5AccessType access, int verbosity,
                        bool staysReadable, LockWait* wait) {
  const Vexa::ReportAs label("H5_Utils");
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
    isNew = !isToBeRead && staysReadable && Vexa::IsEmptyFile(path);
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

std::vector<std::string> Vexa_H5::AttributeNames(hid_t object_id, int verbosity) {
  const Vexa::ReportAs label("H5_Utils");
  const Trace trace(verbosity);
  NameList list(object_id);
  const auto append = [](hid_t, const char* name, const H5A_info_t*, void* data) {
    return static_cast<NameList*>(data)->Append(name, HADDR_UNDEF);
  };
  hsize_t next = 0;
  const herr_t err =
      trace(5, H5Aiterate2(object_id, H5_INDEX_NAME, H5_ITER_INC, &next, append, &list),
            "H5Aiterate2(", object_id, ")");
  REQUIRE(err==0, "H5Aiterate2 failed on id=" << object_id);
  return NamesOf(list.mMembers);
}

std::vector<Vexa_H5::GroupMember> Vexa_H5::ReadGroupMembers(hid_t group_id, int verbosity) {
  const Vexa::ReportAs label("H5_Utils");
  const Trace trace(verbosity);
  NameList list(group_id);
  const auto append = [](hid_t, const char* name, const H5L_info_t* info, void* data) {
    return static_cast<NameList*>(data)->Append(
        name, info->type == H5L_TYPE_HARD ? info->u.address : HADDR_UNDEF);
  };
  const herr_t err =
      trace(5, H5Literate(group_id, H5_INDEX_NAME, H5_ITER_INC, nullptr, append, &list),
            "H5Literate(", group_id, ")");
  REQUIRE(err==0, "H5Literate failed on id=" << group_id);
  return std::move(list.mMembers);
}

MyVector<std::string> Vexa_H5::ReadGroupNames(hid_t group_id, int verbosity) {
  return MyVector<std::string>(NamesOf(ReadGroupMembers(group_id, verbosity)));
}

std::vector<hsize_t> Vexa_H5::Extents(hid_t space_id) {
  const int ndims = H5Sget_simple_extent_ndims(space_id);
  REQUIRE_FOR_CALLER(ndims>=0, "H5Sget_simple_extent_ndims failed");
  std::vector<hsize_t> dims(static_cast<std::size_t>(ndims));
  const int err = H5Sget_simple_extent_dims(space_id, dims.data(), nullptr);
  REQUIRE_FOR_CALLER(err>=0, "H5Sget_simple_extent_dims failed");
  return dims;
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
