#pragma once

#include <hdf5.h>

#include <string>
#include <vector>

#include "Utils/ErrorHandling/Trace.hpp"
#include "Utils/Factory/Register.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/Store/H5_Object.hpp"

#pragma GCC visibility push(default)

namespace H5_Objects {

/// A Dir is a group. Its name ends in ".dir"; the root is "/".
class Dir : public H5_Object, public Factory::Register<Dir> {
 public:
  static std::string ClassID() { return "dir"; }
  static std::string Help();

  /// `existsOnDisk` tells whether the group was found in the file or is still to be created.
  Dir(const std::string& name, bool existsOnDisk, int verbosity);
  /// Ends the process if the group is still open.
  ~Dir() override;

  void OpenObject(hid_t parentId) override { Open(parentId); }
  bool IsObjectOpen() const override { return mGroup_id >= 0; }
  bool AreAttributesKnown() const override { return true; }
  std::uint64_t SizeOfCache() const override { return 0; }
  std::uint64_t NTimeStepsCached() const override { return 0; }
  void WriteCache() override {}
  void DropCache() override {}
  void RolledBack(bool isFileNew) override {
    mExistsOnDisk = mExistsOnDisk && !isFileNew;
    mIsExistenceKnown = isFileNew;
  }
  void CloseObject() override;
  void DropIds() override { mGroup_id = -1; }
  std::vector<std::string> ForeignParts() const override {
    return Vexa::ForeignAttributes(mGroup_id, "", mTrace.Verbosity());
  }
  std::ostream& Output(std::ostream& os, const std::string& indent) const override;

  /// Does so, and returns whether the group existed.
  bool Open(hid_t parentId);
  /// Returns the names of the open group's members, ascending by bytes.
  MyVector<std::string> ReadGroupsFromDisk() const;
  /// Returns the members themselves, in the same order.
  std::vector<Vexa_H5::GroupMember> ReadMembers() const;

  /// Returns the open group, lent; -1 while closed.
  hid_t GroupId() const { return mGroup_id; }

 private:
  std::string mName;
  bool mExistsOnDisk;
  bool mIsExistenceKnown = true;
  Trace mTrace;
  hid_t mGroup_id = -1;
};

}  // namespace H5_Objects

#pragma GCC visibility pop
