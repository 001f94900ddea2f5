// What the kinds that are a single dataset share: the name in the parent group, whether it is in
// the file, the open identifier, and the calls around opening, creating, extending and closing.
// Reports name the kind that called, by its ReportAs.
#pragma once

#include <hdf5.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Utils/ErrorHandling/Trace.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/Store/H5_Object.hpp"
#include "Utils/Tables/Storage.hpp"

#pragma GCC visibility push(default)

namespace H5_Objects {

/// Whether the link is in the parent group; the root "/" always is, and what has an address.
bool LinkExists(hid_t parentId, const std::string& name, haddr_t address, const Trace& trace);

/// Opens what stands at an address of the file of `parentId`; negative if that is no `type`.
hid_t OpenAt(hid_t parentId, haddr_t address, H5I_type_t type, const Trace& trace);

class DataSet : public H5_Object {
 public:
  /// Closes a dataset that was left open, without a report.
  ~DataSet() override;

  bool IsObjectOpen() const override { return mMy_id >= 0; }
  void CloseObject() override;
  void RolledBack(bool isFileNew) override {
    mExistsInFile = mExistsInFile && !isFileNew;
    mIsExistenceKnown = isFileNew;
  }
  void DropIds() override { mMy_id = -1; }
  std::vector<std::string> ForeignParts() const override {
    return Vexa::ForeignAttributes(mMy_id, OwnAttribute(), mTrace.Verbosity());
  }
  std::vector<std::string> MissingParts() const override;

  /// Returns the name of the link in its group.
  const std::string& LinkName() const { return mName; }
  /// Returns how the open dataset lies on disk.
  Tables::Storage Storage() const;
  /// Asks the file for the extents of the open dataset; reports under the caller's label.
  std::vector<hsize_t> ExtentsInFile() const;

 protected:
  /// `label` is the kind's own in reports, such as "H5_ObjectDat"; a literal.
  DataSet(const char* label, const std::string& name, bool existsInFile, int verbosity)
      : mLabel(label), mName(name), mExistsInFile(existsInFile), mTrace(verbosity) {}

  /// Returns the name of the attribute that the kind writes; empty if it writes none.
  virtual std::string OwnAttribute() const { return ""; }

  /// Fails with "Existence of group is inconsistently reported ..." unless the file agrees with
  /// mExistsInFile about the link.
  void RequireConsistentExistence(bool h5_exists);

  /// Opens a dataset that exists; `failure` says that it could not be.
  void Open(hid_t parentId, const std::string& linkName, int traceLevel,
            const std::string& failure);

  /// Whether the file of the open dataset was opened for writing, so that nobody else writes to it.
  bool IsFileWritable() const;

  /// Creates a chunked dataset that can grow along its first dimension. `type_id` is lent.
  hid_t Create(hid_t parentId, const std::string& linkName, const std::vector<hsize_t>& dims,
               const std::vector<hsize_t>& chunk, hid_t type_id, bool compress) const;

  /// Changes the extents of the open dataset.
  void Extend(const std::vector<hsize_t>& dims, const char* message) const;

  /// Sets the extents of a dataset that was extended and could then not be written; reports
  /// nothing.
  void PutBack(const std::vector<hsize_t>& dims) const noexcept;

  const char* mLabel;
  std::string mName;   // the link's name in its parent group
  bool mExistsInFile;  // given at construction, set when created
  bool mIsExistenceKnown = true;
  hid_t mMy_id = -1;  // open dataset, or -1 while closed
  Trace mTrace;
};

}  // namespace H5_Objects

#pragma GCC visibility pop
