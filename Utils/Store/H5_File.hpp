#pragma once

#include <hdf5.h>

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Utils/Containers/MyVector.hpp"
#include "Utils/ErrorHandling/Trace.hpp"
#include "Utils/HDF5/FileLock.hpp"
#include "Utils/HDF5/H5AccessType.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Store/H5_Node.hpp"

#pragma GCC visibility push(default)

namespace Vexa {

/// CacheStatistics counts what files have, and what of it waits in memory to be written.
struct CacheStatistics {
  std::uint64_t mFiles = 0;
  std::uint64_t mDirs = 0;
  std::uint64_t mObjects = 0;
  std::uint64_t mFilesWithCache = 0;
  std::uint64_t mObjectsWithCache = 0;
  std::uint64_t mTimeSteps = 0;
  std::uint64_t mBytes = 0;
};

}  // namespace Vexa

/// An H5_File is one HDF5 file as the store sees it: its path, its access, its identifier while it
/// is open, and the tree of its objects, which stays in memory while the file is closed.
class H5_File {
 public:
  /// Opens the file, or creates it if it is missing and the access is ReadWrite, and reads its
  /// tree. `fullPath` is the real path. With `staysReadable`, what was written is there for every
  /// later reader after each WriteCache(), also of a file that is never closed. Without, a file for
  /// writing is of use only when it is whole: it is created, never opened, neither when it is made
  /// nor later, and is unfinished.
  H5_File(const std::string& fullPath, H5AccessType access, int verbosity,
          bool staysReadable = true);
  H5_File(const H5_File&) = delete;
  H5_File& operator=(const H5_File&) = delete;
  /// Writes what is held and closes the file, unless that is incomplete.
  ~H5_File();

  /// Opens again with the stored access; the tree stays as it is. A file that is opened for writing
  /// and locked by another program is waited for, as LockWait::Patient says.
  void OpenFile();
  /// Opens a closed file to read from it: for writing, too, if its access says so, unless another
  /// program that reads the file is in the way.
  void OpenToRead();
  /// Closes all objects and the file; what is held stays in memory.
  void CloseFile();
  /// Does so after a failure, when nothing can be expected to be in order: reports nothing, and
  /// closes what interrupted calls left open besides. With `discardsUnflushed`, a file that stays
  /// readable is left as it was at its last flush.
  void CloseSilently(bool discardsUnflushed = false) noexcept;
  /// Must be called when the library has ended, and closed the file: forgets what was open. What is
  /// held stays.
  void DropIds();
  bool IsFileOpen() const { return mFile_id >= 0; }
  bool IsOpenForWriting() const { return IsFileOpen() && mIsOpenForWriting; }
  /// Whether the node's object is in the open file.
  bool Contains(const H5_Node& node) const;
  hid_t FileId() const { return mFile_id; }
  /// Whether all that was found in the file when its names were read is where it was.
  bool HasKnownAddresses() const { return mHasKnownAddresses; }
  const std::string& Filename() const { return mFilename; }
  /// Keeps hold of the file itself, which is open, until after it was closed; and with it of the
  /// library's lock, if it has one.
  Vexa::FileDescriptor Hold() const;

  /// Makes a closed file anew, and leaves it open, if somebody has removed it: it is new then, and
  /// what is held goes into it.
  void CreateIfMissing();

  void SetAccess(H5AccessType access) { mAtype = access; }

  H5_Node* Root() const { return mpRoot.get(); }
  std::uint64_t CummulativeCacheSize() const { return mpRoot->CummulativeCacheSize(); }
  /// Returns the bytes that all files hold together.
  static std::uint64_t TotalCacheSize() { return sTotalCacheSize; }

  /// Writes what all objects hold; opens a closed file and leaves it open. Does nothing, not even
  /// open, when nothing is held. Fails on a ReadOnly file that holds data which did not wait for
  /// another program. The failure of one object is thrown on when the others are written; what it
  /// held is dropped. A file that has a handle is flushed then; one that has none is the caller's
  /// to close. When the file itself fails, as on a full disk, it stays as it was at its last flush,
  /// and what was appended since is dropped.
  /// False if a handle that only reads is in the way, or another program's lock that may be, as
  /// `wait` says. What is held then waits for a later call, which is said once.
  bool WriteCache(Vexa_H5::LockWait wait = Vexa_H5::LockWait::None());
  /// Whether the last attempt to write what is held met a lock.
  bool IsWaiting() const { return mIsWaiting; }
  /// Whether others may have changed the file since what is held was appended: it has been waited
  /// for, and what is known of its objects must be compared with what is in it.
  bool HasWaited() const { return mHasWaited; }
  /// Opens the object of `node`, which is new, calls `write`, and closes the object again. If that
  /// fails, what the object holds is dropped, unless the file is unfinished.
  void WriteImmediately(H5_Node& node, const std::function<void()>& write);
  /// Whether the file was made for a handle that is not complete yet.
  bool IsNew() const { return mIsNew; }
  void SetKnown() { mIsNew = mIsUnfinished = false; }
  /// While set, as at first for a file that does not stay readable, the file lacks something that
  /// is still to be added.
  void SetUnfinished(bool isUnfinished) { mIsUnfinished = isUnfinished; }
  /// Whether the file is unfinished, or nothing can be written to it any more. It is neither
  /// written nor closed then when the process ends: what is on disk is not a whole file, and only
  /// because nobody closed it does no reader take it for one.
  bool IsIncomplete() const;
  bool IsUnfinished() const { return mIsUnfinished; }
  /// Whether a write failed, if only of one object; what fails when the file is closed then follows
  /// from that.
  bool HasFailed() const { return mHasFailed; }

  /// Closes all objects but groups.
  void CloseObjectsInGroups();
  /// Closes the groups that do not lead to `node`, if nothing in them is open.
  void CloseGroupsApartFrom(const H5_Node& node);

  /// Counts by a walk over the whole tree, on top of what `others` says of other files.
  Vexa::CacheStatistics Statistics(const Vexa::CacheStatistics& others = {}) const;
  /// Counts in this file alone, each number into a variable of its own.
  void Statistics(std::uint64_t& dirs, std::uint64_t& objects, std::uint64_t& objectsWithCache,
                  std::uint64_t& timeSteps, std::uint64_t& bytes) const;
  void WriteInfo(std::ostream& os, int verbosity) const;
  friend std::ostream& operator<<(std::ostream& os, const H5_File& file);

  /// Returns the full names, such as "/Run.dir/a.dat", of the objects that match the glob,
  /// ascending by bytes. Groups are descended into, whatever `recursive` says, and never listed.
  MyVector<std::string> GetNames(const std::string& glob, bool recursive) const;

  /// Returns the full names of the groups that had attributes when the tree was read.
  const std::vector<std::string>& GroupsWithAttributes() const { return mGroupsWithAttributes; }
  /// Returns those of the groups, the root aside, that had no members then.
  const std::vector<std::string>& EmptyGroups() const { return mEmptyGroups; }

  /// At most one CachedH5File at a time stands for a file.
  bool HasHandle() const { return mpHandle != nullptr; }
  /// Takes the handle's pointer to this file, which becomes null when the file goes, or null when
  /// the handle goes.
  void SetHandle(H5_File** handle) { mpHandle = handle; }

 private:
  friend class H5_Node;

  bool Open(H5AccessType access, Vexa_H5::LockWait& wait);
  void StartAnew();
  void Flush();
  void SetFlushed();
  bool BeginWriting(Vexa_H5::LockWait wait);
  void KeepWaiting();
  void RollBack();
  void CloseNodesOpenedSince(std::size_t openBefore);
  // The nodes tell what is open and how many were read from disk, so that closing costs what was
  // opened and links that lead in circles through a graph of groups are noticed.
  void NodeOpened(const H5_Node& node) { mOpenNodes.push_back(&node); }
  void CloseNodes(const H5_Node& top);
  void CountNode();

  inline static std::uint64_t sTotalCacheSize = 0;  // kept by the nodes

  std::string mFilename;
  Trace mTrace;
  H5AccessType mAtype;
  hid_t mFile_id = -1;
  bool mIsOpenForWriting = false;   // else the open file is open for reading
  Vexa_H5::SharedLock mSharedLock;  // while the file is open without the library's lock
  bool mIsWaiting = false;
  bool mHasWaited = false;
  H5_File** mpHandle = nullptr;
  bool mStaysReadable;
  bool mIsNew = false;
  bool mIsUnfinished;
  bool mIsWriting = false;
  bool mHasLost = false;     // what objects hold again before the next write
  bool mCannotOpen = false;  // at the last attempt to write
  bool mHasFailed = false;
  std::set<H5_Object*> mUnflushed;  // may have changed the file since its last flush
  std::uint64_t mNodes = 0;
  std::string mStamp;  // of the file whose names were read, if only to be read
  bool mHasKnownAddresses = false;
  std::uint64_t mMostNodes = 0;            // a file of this size has no room for more
  std::vector<const H5_Node*> mOpenNodes;  // in the order of opening
  std::vector<std::string> mGroupsWithAttributes;
  std::vector<std::string> mEmptyGroups;
  std::unique_ptr<H5_Node> mpRoot;  // null only until the file was opened
};

#pragma GCC visibility pop
