// What the kinds that store strings share: one dataset of strings of variable length, opened or
// created, written and closed in the same way.
#pragma once

#include <hdf5.h>

#include <string>
#include <vector>

#include "Utils/HDF5/Handle.hpp"
#include "Utils/Store/DataSet.hpp"

namespace H5_Objects {

class StringDataSet : public DataSet {
 public:
  void OpenObject(hid_t parentGroupId) override;
  void CloseObject() override;
  bool AreAttributesKnown() const override { return mIsKnown; }

 protected:
  /// `label` is the kind's own in reports, `traceName` begins trace lines; both are literals.
  StringDataSet(const char* label, const char* traceName, const std::string& name,
                bool existsOnDisk, int verbosity)
      : DataSet(name, existsOnDisk, verbosity), mLabel(label), mTraceName(traceName) {}
  /// Ends the process if the object is still open.
  ~StringDataSet() override;

  /// Does the kind's own part of opening: takes in the extents in the file of a dataset that
  /// exists, ...
  virtual void TakeExisting(const std::vector<hsize_t>& dims) = 0;
  /// ... or shapes a new one: extents and chunk, and attributes once it is created.
  virtual void Shape(std::vector<hsize_t>& dims, std::vector<hsize_t>& chunk) const = 0;
  virtual void AttachAttributes() {}
  /// Returns the character set of a new dataset.
  virtual H5T_cset_t CharacterSet() const = 0;

  /// Extends the open dataset to `dims` and writes the strings, in the character set of the
  /// dataset, to the block of `count` at `start`, which ends where the dataset does. If that fails,
  /// the dataset is as long as before.
  void WriteStrings(const std::vector<hsize_t>& dims, const std::vector<hsize_t>& start,
                    const std::vector<hsize_t>& count, const std::vector<const char*>& strings);

 private:
  Vexa_H5::DatatypeHandle MemoryType() const;

  const char* mLabel;
  const char* mTraceName;
  bool mIsKnown = false;
};

}  // namespace H5_Objects
