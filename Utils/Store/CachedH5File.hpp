// How programs reach HDF5 files: a CachedH5File is made for a file name, lends typed objects, and
// goes away again; what was appended stays in memory until the file cache writes it.
#pragma once

#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Utils/Containers/MyVector.hpp"
#include "Utils/ErrorHandling/RequireFail.hpp"
#include "Utils/HDF5/H5AccessType.hpp"
#include "Utils/Store/H5_File.hpp"

#pragma GCC visibility push(default)

// What a program may rely on. Once a write of the caches has returned (CachedH5FileHolder says when
// there is one), what was appended before is in the files for every later reader, whatever ends the
// process: a kill, an abort, _exit; but for a file that waits for another program, which is said.
// So is an empty file once its first handle was made. A kill within a write leaves each file as it
// was after the write before, or as it is after this one. The rows of all objects of a file belong
// together then, as far as the program lets no write come between what belongs together: it gets
// all objects of a step before it appends to the first. Two things are not promised. What a power
// cut takes is the file system's to say. And where the objects of one file hold more than 32 MB at
// a write, or change so much of what is in the file, the file is changed in several steps; a kill
// between them can cost rows that were there before.
//
// While a file is open for writing, other programs must wait for it, and so must other openings of
// it by HDF5 in this process. A handle per step keeps it open for the time of a write alone.
//
// The store, with all its handles and the objects that they lend, belongs to one thread at a time.
// Threads may take turns that the program orders. A thread that calls the store while another one
// is inside gets a report ("The store is used by two threads at once"), which touches no file; what
// is held is written, once the other thread has left the store, if it does within ten seconds.
//
// A program may use HDF5 itself, before the store or along with it, and may even close the library
// by H5close(): the store opens its files again when it needs them. Files of the program's own that
// are open at the end of the process are closed as they are without the store.

/// A CachedH5File is a light handle on one of the holder's files. Only one handle per file may be
/// alive. Names are paths in the file, such as "/Run.dir/a.dat"; leading, trailing and doubled
/// slashes do nothing. A table that the file has under an older, misspelled name is found under its
/// right name as well. Objects are lent: they are the file's, and valid until the cache is purged.
class CachedH5File {
 public:
  using VersionHistory = std::vector<std::pair<std::string, std::string>>;

  /// Opens the file, and reads its names when it is opened for the first time. A missing file is
  /// created if the access is ReadWrite, also one that was removed since an earlier handle on it,
  /// into which then goes what waited for it; with a version history that is not empty it then gets
  /// a record "VersionHist.ver". Fails with "Tried to open nonexistent file <name> for reading" or
  /// "Tried to create file <name> in nonexistent directory".
  /// Where another program has a file open that is to be written, waits for that first, as
  /// CachedH5FileHolder::SetLockPatience says; where one writes to a file that is to be read,
  /// fails. Without `keepOpen` the file is closed again when its names are read, and opened on
  /// demand.
  CachedH5File(const std::string& filename, H5AccessType access,
               const VersionHistory& versionHistory, int verbosity, bool keepOpen = true);
  /// Creates a new file that is of no use before all of it is there, and is written faster for
  /// that. It is never opened: if anything has the name, be it a symbolic link that leads nowhere,
  /// fails with "H5Fcreate(<path>, ...) failed". It stays open until the handle goes or the cache
  /// is purged, and is unfinished until SetUnfinished(false). What is held when the handle goes
  /// before the purge cannot be written any more.
  static std::unique_ptr<CachedH5File> CreateUnfinished(const std::string& filename);
  CachedH5File(const CachedH5File&) = delete;
  CachedH5File& operator=(const CachedH5File&) = delete;
  /// Checks the memory bound, then closes the file; what is held stays in memory. While an
  /// exception passes, the file is only closed, and nothing is reported: whoever catches the
  /// exception can go on with a new handle.
  ~CachedH5File();
  /// Does what the destructor does, but throws what fails, which there would end the process, and
  /// does not warn of twice the limit. The handle is of no use any more.
  void LetGo();

  /// Returns the real path of the file.
  const std::string& Filename() const { return mpFile->Filename(); }

  /// Returns which other files external links led to when the names and objects of this one were
  /// read, each with what FileStamp() said before it was opened; ascending by real path.
  std::map<std::string, std::string> ExternalFiles() const;

  /// Returns the full in-file path and the own name of the node that `name` denotes.
  std::string Path(const std::string& name) const;
  std::string Name(const std::string& name) const;
  /// Returns where that object is in the file, if it was there when the names were read (see
  /// H5_Node::Address()).
  haddr_t AddressOf(const std::string& name) const;
  bool Exists(const std::string& name) const;
  /// See H5_File::GetNames.
  MyVector<std::string> GetNames(const std::string& glob, bool recursive) const;

  /// See H5_File::GroupsWithAttributes.
  const std::vector<std::string>& GroupsWithAttributes() const {
    return mpFile->GroupsWithAttributes();
  }
  /// See H5_File::EmptyGroups.
  const std::vector<std::string>& EmptyGroups() const { return mpFile->EmptyGroups(); }

  /// Returns the object for reading, open. Fails if it does not exist, or is not of the kind; and
  /// through a ReadOnly handle, if all of it waits in memory because another program has the file
  /// open.
  template <class OBJECT>
  OBJECT& GetObjectForRead(const std::string& name) {
    return Cast<OBJECT>(GetObjectForRead_(name, OBJECT::ClassID()));
  }
  /// Returns the object for appending, made with the groups above it if it does not exist. A new
  /// object leaves the file untouched, unless a signal asked for a flush. One that is in the file
  /// has its extents, legends and counts known; for that it is opened when a process first asks for
  /// it, and the file stays open until this handle goes. A set whose index and values disagree, as
  /// a killed run may leave them, is cut back to its last whole step then, with a notice through
  /// MyErr. Fails if this handle is ReadOnly, or the object is not of the kind.
  template <class OBJECT>
  OBJECT& GetObjectForWrite(const std::string& name) {
    return Cast<OBJECT>(GetObjectForWrite_(name, OBJECT::ClassID()));
  }
  H5_Object& GetObjectForRead_(const std::string& name, const std::string& type);
  H5_Object& GetObjectForWrite_(const std::string& name, const std::string& type);

  /// Opens the object of that name, which GetObjectForWrite made known, hands it to `write`, and
  /// closes it again: for what is written at once because holding it in the cache serves nothing.
  void WriteImmediately(const std::string& name, const std::function<void()>& write);

  /// Says that the file is of no use as it is, until it is said to be finished. If the process ends
  /// before that, the file is left as it is then, not closed, and no reader takes it for a whole
  /// one.
  void SetUnfinished(bool isUnfinished);
  /// Keeps hold of the file itself, which must be open, beyond the life of this handle.
  Vexa::FileDescriptor Hold() const;
  /// Returns the stamp of the file that is open, whatever has its name by now; empty if none is
  /// open.
  std::string OpenedStamp() const;

  /// Closes the objects that were opened for reading, so that a long-lived handle holds hardly more
  /// than a new one: at most the groups that lead to the last object, of which the next is likely
  /// to be a neighbour.
  void CloseObjects();
  /// Closes the file besides; it is opened again when something is read.
  void CloseFile();

  friend std::ostream& operator<<(std::ostream& os, const CachedH5File& file);

 private:
  enum class Kind { Growing, Whole };
  CachedH5File(const std::string& filename, H5AccessType access, int verbosity, Kind kind);

  template <class OBJECT>
  static OBJECT& Cast(H5_Object& object) {
    OBJECT* ptr2 = dynamic_cast<OBJECT*>(&object);
    VEXA_REQUIRE_AS("../../Utils/H5/CachedH5File", "ptr2!=0", ptr2 != 0,
                    "consistency error dynamic_cast failed");
    return *ptr2;
  }

  H5AccessType mAtype;
  H5_File* mpFile = nullptr;  // the holder's; null once the cache was purged
};

#pragma GCC visibility pop
