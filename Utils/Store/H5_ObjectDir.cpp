#include "Utils/Store/H5_ObjectDir.hpp"

#include <ostream>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/ExternalFiles.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/HDF5/ObjectHeader.hpp"
#include "Utils/Store/DataSet.hpp"

template struct Factory::Register<H5_Objects::Dir>;

namespace H5_Objects {

std::string Dir::Help() {
  return "H5_Object::Dir\n  Represents a group.\n";
}

Dir::Dir(const std::string& name, bool existsOnDisk, int verbosity)
    : mName(name), mExistsOnDisk(existsOnDisk), mTrace(verbosity) {}

Dir::~Dir() {
  if (Vexa::MayCheckInDestructor()) {
    REQUIRE(IsObjectOpen()==false,
            "calling destructor ~H5_ObjectDir while its h5-group is open.\n"
                << "H5_Node should have called CloseObject() before destruction");
  }
  if (mGroup_id >= 0) {
    H5Gclose(mGroup_id);
  }
}

bool Dir::Open(hid_t parentId) {
  const Vexa::ReportAs label("H5_ObjectDir");
  REQUIRE(IsObjectOpen()==false, "Opening H5_ObjectDir while it is already open");
  const bool h5_exists = LinkExists(parentId, mName, mAddress, mTrace);
  mExistsOnDisk = mIsExistenceKnown ? mExistsOnDisk : h5_exists;
  mIsExistenceKnown = true;
  REQUIRE(h5_exists==mExistsOnDisk,
          "Existence of group is inconsistently reported by h5-library and\nH5_Node.  mName="
              << mName << ", h5_exists=" << h5_exists << ", mExistsOnDisk=" << mExistsOnDisk);
  if (h5_exists) {
    mGroup_id = mAddress != HADDR_UNDEF
                    ? OpenAt(parentId, mAddress, H5I_GROUP, mTrace)
                    : mTrace(5, H5Gopen2(parentId, mName.c_str(), Vexa_H5::GroupAccess()),
                             "H5Gopen2(", parentId, ", \"", mName, "\")");
    Vexa_H5::NoteOpened(mGroup_id);
    REQUIRE(mGroup_id>=0, "H5Gopen2 failed on group '" << mName << "'");
    Vexa_H5::RequireSoundHeader(mGroup_id);
  } else {
    Vexa_H5::PropertyListHandle gcpl_id = Vexa_H5::UntimedCreation(H5P_GROUP_CREATE);
    mGroup_id = mTrace(5, H5Gcreate2(parentId, mName.c_str(), H5P_DEFAULT, gcpl_id, H5P_DEFAULT),
                       "H5Gcreate2(", parentId, ", \"", mName, "\")");
    REQUIRE(mGroup_id>=0, "H5Gcreate2 failed on group '" << mName << "'");
    gcpl_id.Close("err>=0");
    mExistsOnDisk = true;
    mTrace.Line(5, "H5_ObjectDir created ", mName);
  }
  mTrace.Line(5, "H5_ObjectDir mName=", mName, " id=", mGroup_id);
  return h5_exists;
}

void Dir::CloseObject() {
  const hid_t group_id = mGroup_id;
  mGroup_id = -1;
  const herr_t err = mTrace(5, H5Gclose(group_id), "H5Gclose(", group_id, ")");
  REQUIRE(0==err, "H5Gclose failed");
}

std::ostream& Dir::Output(std::ostream& os, const std::string& indent) const {
  os << indent;
  if (!mExistsOnDisk) {
    return os << "not yet created in h5-file";
  }
  return IsObjectOpen() ? os << "id=" << mGroup_id : os << "closed";
}

MyVector<std::string> Dir::ReadGroupsFromDisk() const {
  return Vexa_H5::ReadGroupNames(mGroup_id, mTrace.Verbosity());
}

std::vector<Vexa_H5::GroupMember> Dir::ReadMembers() const {
  return Vexa_H5::ReadGroupMembers(mGroup_id, mTrace.Verbosity());
}

}  // namespace H5_Objects
