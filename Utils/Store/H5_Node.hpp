// The tree that mirrors a file in memory: a node per group and stored object. It is read once, when
// the file is first opened, by names only: no dataset is opened before it is asked for. The
// objects' caches live in the tree, across closes and reopens of the file.
#pragma once

#include <hdf5.h>

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Utils/Containers/MyMap.hpp"
#include "Utils/Containers/MyVector.hpp"
#include "Utils/ErrorHandling/RequireFail.hpp"
#include "Utils/ErrorHandling/Trace.hpp"
#include "Utils/Store/H5_Object.hpp"

namespace Vexa {
class FailedWrites;  // which is not installed
}

#pragma GCC visibility push(default)

class H5_File;

class H5_Node {
 public:
  /// This tells whether a member of a group was found in the file, or is to be created in it.
  enum class Origin { OnDisk, New };

  /// Makes the root of a file that is open as `fileId`, and reads all names below it.
  H5_Node(H5_File& file, hid_t fileId, int verbosity);
  /// Makes a member of the group `parent`, which calls this; nothing is read.
  H5_Node(const std::string& name, H5_Node& parent, Origin origin, int verbosity);
  H5_Node(const H5_Node&) = delete;
  H5_Node& operator=(const H5_Node&) = delete;
  ~H5_Node() = default;

  /// Returns the extension of the name, which is the object's kind; "dir" for groups. Lent by the
  /// name.
  std::string_view Type() const;
  /// Returns the node's own name with its extension; "/" for the root.
  const std::string& Name() const { return mName; }
  /// Returns the directory part of the full name, ending in "/"; empty for the root.
  std::string Path() const;
  std::string FullName() const { return Path() + mName; }
  /// Returns the path of the file.
  const std::string& Filename() const;
  H5_Node* Parent() const { return mpParent; }
  const MyMap<std::string, H5_Node>& Children() const { return Members(); }

  /// Returns the text after the last ".". Fails on a name without one, with the list of valid
  /// extensions.
  std::string_view GetExtension(std::string_view name) const;

  /// Adds a new member to this group. Fails unless this is a group and the name has no slash.
  H5_Node& CreateChild(const std::string& non_path_name);
  /// Returns the node of a path relative to this one, made with all groups on the way if it is
  /// missing.
  H5_Node& CreateNode(const std::string& path);
  /// Returns the node of a path; fails with "Node <path> not found".
  H5_Node& GetNode(const std::string& path);
  const H5_Node& GetNode(const std::string& path) const;
  bool Exists(const std::string& path) const;
  /// Follows a path; a table that the file has under an older name is found under its right one
  /// too. Empty pieces do nothing, ".." leads to the parent, which the root has not. Null if a
  /// piece is missing and not to be created.
  H5_Node* DirectoryTraversal(std::string_view path, bool create);

  /// Returns the object, made when it is first asked for.
  H5_Object& Object() const;
  /// Returns the object as the kind OBJECT; fails if the node is of another kind.
  template <class OBJECT>
  OBJECT& GetObject() const {
    VEXA_REQUIRE(OBJECT::ClassID()==Type(), "Node contains H5_Object '"
                 << Type() << "', but requesting\nto cast into H5_Object '"
                 << OBJECT::ClassID() << "'");
    OBJECT* ptr = dynamic_cast<OBJECT*>(&Object());
    VEXA_REQUIRE(ptr!=0, "consistency error dynamic_cast failed");
    return *ptr;
  }

  /// Return the bytes and time steps that the node's own object holds.
  std::uint64_t SizeOfCache() const { return mpObject == nullptr ? 0 : mpObject->SizeOfCache(); }
  std::uint64_t NTimeStepsCached() const {
    return mpObject == nullptr ? 0 : mpObject->NTimeStepsCached();
  }

  bool IsObjectOpen() const { return mpObject != nullptr && mpObject->IsObjectOpen(); }
  /// Opens the object, and the groups above it as far as they are closed; new ones are created.
  /// The file must be open.
  void OpenObject() const;
  /// Whether the object is new, or MakeReadyToAppend has seen it.
  bool IsReadyToAppend() const { return mIsReadyToAppend; }
  /// Has an object that was found in the file know its attributes, and makes it fit to be appended
  /// to. What was closed before is closed again, but for the groups above, whose other members are
  /// likely to follow. The file must be open.
  void MakeReadyToAppend();
  /// Closes this node's object and all that is open below it.
  void CloseObject() const;
  /// Writes what the subtree holds, groups before their members, and touches nothing else. What was
  /// closed before is closed again after it was written. An object that cannot be written forgets
  /// what it holds, as a group does with all its members, and the others are written nevertheless.
  void WriteCache(Vexa::FailedWrites& failed);
  /// Has the subtree forget what it holds.
  void DropCache();
  /// Says that the object may have changed the file since its last flush.
  void SetUnflushed();
  /// Tells all objects that the file is as it was at its last flush: some may not be in it; or that
  /// it was made anew, and none is.
  void RolledBack(bool isFileNew);
  /// Has all objects hold what the file needs and lost by that.
  void HoldAgain();
  /// Returns where the object was in the file when the node was made; HADDR_UNDEF if it was not, or
  /// only by way of a link that may lead to another file.
  haddr_t Address() const { return mAddress; }
  /// Whether the object was in the file when the node was made, and that file is still there.
  bool WasOnDisk() const { return mIsOnDisk; }
  /// Returns the bytes that the objects of the subtree hold, which is known without a walk.
  std::uint64_t CummulativeCacheSize() const { return mCacheSize; }

  /// Appends the full names of the objects below this node that match the glob; never groups.
  /// Descends into groups whatever `recursive` says.
  void AppendDataSets(const std::string& glob, std::vector<std::string>& names,
                      bool recursive) const;

  /// Describes the subtree: at most `mostObjects` objects of a group one by one.
  void WriteInfo(std::ostream& os, const std::string& indent, int verbosity, int mostObjects,
                 bool isLast) const;

 private:
  struct Ancestors;

  const H5_File* Root() const { return mpFile; }
  bool IsGroup() const { return mpMembers != nullptr; }
  MyMap<std::string, H5_Node>& Members() const;
  void InitChildrenFromDir(const Ancestors* above);
  void OpenNode(hid_t parentId) const;
  H5_Node* FindChild(const std::string& name) const;
  H5_Node& InsertChild(const std::string& name, Origin origin);
  void CacheChanged(std::uint64_t before, std::uint64_t now);
  void RequireNoCycle(const Ancestors& group) const;

  std::string mName;
  Trace mTrace;
  bool mIsOnDisk;  // when the node was made
  bool mIsReadyToAppend;
  mutable bool mIsGone = false;    // along with the file; nobody has asked for the object
  haddr_t mAddress = HADDR_UNDEF;  // when the node was made
  std::uint64_t mCacheSize = 0;    // of the subtree
  H5_Node* mpParent;               // null for the root
  H5_File* mpFile;
  mutable std::unique_ptr<H5_Object> mpObject;             // null until asked for
  std::unique_ptr<MyMap<std::string, H5_Node>> mpMembers;  // of groups only
};

#pragma GCC visibility pop
