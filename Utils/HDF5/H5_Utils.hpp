// The lowest layer of the store: opening files, short lists as attributes, and the members of a
// group, each in one way. Every answer of the library is checked; a failure is a REQUIRE report.
#pragma once

#include <hdf5.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Utils/Containers/MyVector.hpp"
#include "Utils/HDF5/FileLock.hpp"
#include "Utils/HDF5/H5AccessType.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/Process/Files.hpp"

#pragma GCC visibility push(default)

namespace Vexa_H5 {

/// Bounds the formats that a file may use: low is that of the 1.8 library, so that every reader
/// since 1.8 can read what we write; high is the newest, so that inputs written by newer libraries
/// open as well.
void set_libver_bounds(hid_t fapl_id);

/// Returns a creation property list of the class (H5P_FILE_CREATE, H5P_GROUP_CREATE or
/// H5P_DATASET_CREATE) that keeps no times with the object, so that files written twice from the
/// same data are the same.
PropertyListHandle UntimedCreation(hid_t propertyListClass);

/// Access property lists for opening groups and datasets. An external link to something that is not
/// a regular file is not followed: opening a FIFO would wait for ever. The lists are the library's
/// for the life of the process.
hid_t GroupAccess();
hid_t DatasetAccess();

/// Creates a file, and fails with "H5Fcreate(<path>, ...) failed" and the reason where anything has
/// the name, be it a symbolic link that leads nowhere. What fails leaves no file behind. A file
/// that stays readable goes through the committing driver (CommittingDriver.hpp), another one
/// through the output driver (OutputDriver.hpp) if there may be more than one thread.
hid_t CreateFile(const std::string& path, int verbosity, bool staysReadable);

/// Returns the size that a file of ours had when it was closed, by its own words; none if it does
/// not begin as such a file does.
std::optional<std::uint64_t> SizeWhenClosed(const Vexa::FileDescriptor& file);

/// Opens an existing file, or creates a missing one if the access is ReadWrite; never truncates.
/// Fails on anything that is not a regular file (opening a FIFO would wait for ever) with "'<path>'
/// is not a regular file", on a missing file that is to be read with "Attempting to create
/// non-existent file '<path>' in ReadOnly mode". A file that is written and stays readable goes
/// through the committing driver (CommittingDriver.hpp); for that an empty file that nobody has
/// locked is as good as a new one, since a process that was killed while it created one leaves it
/// so. What is opened
/// for writing may be locked by another program: `wait`, if given, says what is done then. The
/// result is negative if it may stay locked, and does.
hid_t OpenFile(const std::string& path, H5AccessType access, int verbosity,
               bool staysReadable = false, LockWait* wait = nullptr);

/// Stores a list of strings as one new attribute of a group or dataset: one-dimensional, of
/// variable-length strings. An empty list has extent 0.
void AttachStringsToAttributes(hid_t id, const std::string& name, const MyVector<std::string>& list,
                               int verbosity);

/// Reads such a list: of any character set, of variable or fixed length; an element that was never
/// written is empty. An absent attribute gives an empty list if `allowMissing`, and fails with
/// "H5Aopen failed" otherwise.
MyVector<std::string> RetrieveStringsFromAttributes(hid_t id, const std::string& name,
                                                    bool allowMissing, int verbosity);

/// Stores a list of numbers as one new one-dimensional attribute; T is unsigned long.
template <class T>
void AttachAttributes(hid_t id, const std::string& name, const std::vector<T>& values,
                      int verbosity);

/// Reads such a list; absent attributes as for strings. T is unsigned long.
template <class T>
std::vector<T> RetrieveAttributes(hid_t id, const std::string& name, bool allowMissing,
                                  int verbosity);

/// Returns the names of all attributes of an object, ascending by bytes.
std::vector<std::string> AttributeNames(hid_t object_id, int verbosity);

/// Returns the names of all links in a group, ascending by bytes.
MyVector<std::string> ReadGroupNames(hid_t group_id, int verbosity);

/// A link in a group.
struct GroupMember {
  std::string mName;
  haddr_t mAddress;  // of the object's header; HADDR_UNDEF unless the link is a hard one
};

/// Returns all links in a group, names ascending by bytes.
std::vector<GroupMember> ReadGroupMembers(hid_t group_id, int verbosity);

/// Returns the extents of a dataset or attribute's dataspace; empty for a scalar. Closes nothing.
std::vector<hsize_t> Extents(hid_t space_id);

/// These are the messages with which a failed read of strings is reported.
struct StringReadMessages {
  const char* mRead;
  const char* mReclaim;
};

/// Calls H5Aread or H5Dread with a memory type and a buffer.
using ReadCall = std::function<herr_t(hid_t memoryType, void* buffer)>;

/// Reads `count` strings of a dataset or attribute of the file type `fileType` through `read`.
/// `space_id` describes the buffer. Takes any character set that HDF5 knows and both variable and
/// fixed length. Fails under the caller's name if the type is not a string, or a string is not
/// where its element says.
std::vector<std::string> ReadStrings(hid_t object_id, hid_t fileType, hid_t space_id,
                                     std::size_t count, const ReadCall& read,
                                     const StringReadMessages& messages);

/// Fails unless what an object claims to hold can be in the file: `claimed` bytes against `stored`
/// bytes on disk, of the object or of all its file. No filter of ours compresses by more than some
/// thousand to one, so a far larger claim is damage, and memory for it must not be asked for. Small
/// claims always pass.
void RequirePlausibleSize(long double claimed, std::uint64_t stored, const std::string& name);

}  // namespace Vexa_H5

#pragma GCC visibility pop
