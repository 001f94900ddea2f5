// Tables whose rows stay where they are: HDF5's virtual datasets, as far as views need them. What
// such a dataset names may be anything, itself or a device, so nothing of it is opened here.
#pragma once

#include <hdf5.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Utils/ErrorHandling/Trace.hpp"
#include "Utils/Tables/RowRun.hpp"

#pragma GCC visibility push(default)

namespace Tables {

/// Rows of a virtual table that are rows of a table in another file.
struct Mapping {
  std::string mFile;        // as seen from the folder of the file with the virtual table
  std::string mTable;       // the path in that file
  std::uint64_t mFileRows;  // how long the table was there
  RowRun mRows;             // of the table there
  std::uint64_t mFirstRow;  // of the virtual table: where they stand in it
};

struct VirtualTable {
  std::uint64_t mColumns = 0;
  std::vector<Mapping> mMappings;
  bool mIsNaNElsewhere = true;  // rows that no file gives read as NaN
};

/// Creates a table of these rows, which all follow one another. Where a file cannot be read, its
/// rows read as NaN, without an error. Returns the open dataset. Fails with "H5Dcreate2 failed".
hid_t CreateVirtualTable(hid_t parentId, const std::string& name, const VirtualTable& table,
                         const Trace& trace);

/// Reads what an open virtual dataset, whose creation list this is, maps to where. Fails unless
/// each mapping is a run of whole rows of fixed length: one of another kind has the library look
/// for files when it is asked for the extents.
VirtualTable ReadVirtualTable(hid_t cparms_id, const std::string& name);

/// While an object of this class lives, virtual tables of the form above open, for whoever looks at
/// legends, extents and mappings. Their values cannot be read. Otherwise they do not open.
class OpenVirtualTables {
 public:
  OpenVirtualTables() { ++sCount; }
  ~OpenVirtualTables() { --sCount; }
  OpenVirtualTables(const OpenVirtualTables&) = delete;
  OpenVirtualTables& operator=(const OpenVirtualTables&) = delete;
  static bool AreAllowed() { return sCount > 0; }

 private:
  inline static int sCount = 0;
};

}  // namespace Tables

#pragma GCC visibility pop
