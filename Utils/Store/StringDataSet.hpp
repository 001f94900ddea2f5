// What the kinds that store strings share: one dataset of strings of variable length, opened or
// created, written and closed in the same way.
#pragma once

#include <hdf5.h>

#include <string>
#include <utility>
#include <vector>

#include "Utils/HDF5/Handle.hpp"
#include "Utils/Store/DataSet.hpp"

#pragma GCC visibility push(default)

namespace H5_Objects {

class StringDataSet : public DataSet {
 public:
  void OpenObject(hid_t parentGroupId) override;
  bool AreAttributesKnown() const override { return mIsKnown; }
  void WriteCache() override;
  void Flushed() override { mRowsFlushed = mSize; }
  void RolledBack(bool isFileNew) override;

 protected:
  /// `traceName` begins trace lines; a literal. `chunk` has the extents of a chunk of a new
  /// dataset; of these only the first, the rows, may differ from those of a dataset.
  StringDataSet(const char* label, const char* traceName, std::vector<hsize_t> chunk,
                const std::string& name, bool existsOnDisk, int verbosity)
      : DataSet(label, name, existsOnDisk, verbosity),
        mTraceName(traceName),
        mChunk(std::move(chunk)) {}
  /// Ends the process if the object is still open.
  ~StringDataSet() override;

  /// Does the kind's own part of opening: takes in a dataset that exists and has these extents in
  /// the file, or gives a new one its attributes.
  virtual void TakeExisting(const std::vector<hsize_t>& dims) = 0;
  virtual void AttachAttributes() {}
  /// Returns the strings that wait in memory, row after row.
  virtual std::vector<std::string> WaitingStrings() const = 0;
  /// Fails if these strings cannot be written to the open dataset; else traces that they will be.
  virtual void RequireWritable(const std::vector<std::string>& strings) const = 0;

  /// Reads the whole open dataset, `count` strings of any HDF5 string type, in storage order.
  std::vector<std::string> ReadAllStrings(std::size_t count) const;
  /// Reads the first of the strings of a dataset of one dimension.
  std::vector<std::string> ReadFirstStrings(std::size_t count) const;

  unsigned long long mSize = 0;  // rows in the file, or characters of the older format of texts

 private:
  std::vector<hsize_t> Shape(hsize_t rows) const;
  std::vector<std::string> ReadSelected(std::size_t count, hid_t memspace_id,
                                        hid_t filespace_id) const;
  void AppendRows(const std::vector<std::string>& strings);
  void WriteRows(hid_t type_id, const std::vector<hsize_t>& count,
                 const std::vector<std::string>& strings) const;

  const char* mTraceName;
  std::vector<hsize_t> mChunk;
  unsigned long long mRowsFlushed = 0;  // of the file as it was last flushed
  bool mIsKnown = false;
};

}  // namespace H5_Objects

#pragma GCC visibility pop
