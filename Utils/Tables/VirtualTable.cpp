#include "Utils/Tables/VirtualTable.hpp"

#include <array>
#include <cmath>
#include <limits>
#include <optional>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/HDF5/Handle.hpp"

namespace Tables {

namespace {

using Vexa_H5::DataspaceHandle;

// In names, HDF5 takes "%b" for a number of its own, and "%%" for "%".
std::string Escaped(const std::string& name) {
  std::string escaped;
  for (const char c : name) {
    escaped.append(c == '%' ? 2 : 1, c);
  }
  return escaped;
}

// Returns nothing for a name that stands for many.
std::optional<std::string> Unescaped(const std::string& escaped) {
  std::string name;
  for (std::size_t i = 0; i < escaped.size(); ++i) {
    if (escaped[i] == '%' && (++i == escaped.size() || escaped[i] != '%')) {
      return std::nullopt;
    }
    name += escaped[i];
  }
  return name;
}

// The rows of a table of that shape, as one block: a selection with a stride, if only of one, is
// read a hundred times slower.
DataspaceHandle SelectRows(std::uint64_t rows, std::uint64_t columns, const RowRun& run) {
  const std::array<hsize_t, 2> dims = {rows, columns};
  DataspaceHandle space_id(H5Screate_simple(2, dims.data(), nullptr));
  REQUIRE_FOR_CALLER(space_id>=0, "H5Screate_simple failed");
  const std::array<hsize_t, 2> start = {run.mFirst, 0};
  const std::array<hsize_t, 2> count = {1, 1};
  const std::array<hsize_t, 2> block = {run.Size(), columns};
  const herr_t err = H5Sselect_hyperslab(space_id, H5S_SELECT_SET, start.data(), nullptr,
                                         count.data(), block.data());
  REQUIRE_FOR_CALLER(err>=0, "H5Sselect_hyperslab failed");
  return space_id;
}

// What SelectRows() has selected; nothing if it is another kind of selection.
struct SelectedRows {
  std::uint64_t mTableRows;
  std::uint64_t mColumns;
  RowRun mRows;
};
std::optional<SelectedRows> RowsOf(hid_t space_id) {
  const std::vector<hsize_t> dims = Vexa_H5::Extents(space_id);
  std::array<hsize_t, 2> start{}, stride{}, count{}, block{};
  if (dims.size() != 2 || H5Sget_select_type(space_id) != H5S_SEL_HYPERSLABS ||
      H5Sis_regular_hyperslab(space_id) <= 0 ||
      H5Sget_regular_hyperslab(space_id, start.data(), stride.data(), count.data(), block.data()) <
          0) {
    return std::nullopt;
  }
  const bool isOneBlock = count[0] == 1 && count[1] == 1;
  const bool isWithin = block[0] > 0 && start[0] <= dims[0] && block[0] <= dims[0] - start[0];
  if (!isOneBlock || !isWithin || start[1] != 0 || block[1] != dims[1]) {
    return std::nullopt;
  }
  return SelectedRows{dims[0], dims[1], {start[0], start[0] + block[0]}};
}

// The name of the file, or of the table in it, to which a mapping leads.
using GetName = ssize_t (*)(hid_t, std::size_t, char*, std::size_t);
std::optional<std::string> NameIn(hid_t cparms_id, std::size_t i, GetName getName) {
  const ssize_t length = getName(cparms_id, i, nullptr, 0);
  REQUIRE_FOR_CALLER(length>=0, "H5Pget_virtual_filename or H5Pget_virtual_dsetname failed");
  std::string name(static_cast<std::size_t>(length), '\0');
  const ssize_t err = getName(cparms_id, i, name.data(), name.size() + 1);
  REQUIRE_FOR_CALLER(err>=0, "H5Pget_virtual_filename or H5Pget_virtual_dsetname failed");
  return Unescaped(name);
}

}  // namespace

hid_t CreateVirtualTable(hid_t parentId, const std::string& name, const VirtualTable& table,
                         const Trace& trace) {
  std::uint64_t rows = 0;
  for (const Mapping& mapping : table.mMappings) {
    rows += mapping.mRows.Size();
  }
  const Vexa_H5::PropertyListHandle cparms_id = Vexa_H5::UntimedCreation(H5P_DATASET_CREATE);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  herr_t err = trace(5, H5Pset_fill_value(cparms_id, H5T_NATIVE_DOUBLE, &nan),
                     "H5Pset_fill_value(cparms_id, NaN)");
  REQUIRE_FOR_CALLER(err>=0, "H5Pset_fill_value failed");
  for (const Mapping& mapping : table.mMappings) {
    const std::uint64_t first = mapping.mFirstRow;
    const DataspaceHandle here =
        SelectRows(rows, table.mColumns, {first, first + mapping.mRows.Size()});
    const DataspaceHandle there = SelectRows(mapping.mFileRows, table.mColumns, mapping.mRows);
    err = trace(5,
                H5Pset_virtual(cparms_id, here, Escaped(mapping.mFile).c_str(),
                               Escaped(mapping.mTable).c_str(), there),
                "H5Pset_virtual(cparms_id, ", mapping.mFile, ", ", mapping.mTable, ")");
    REQUIRE_FOR_CALLER(err>=0, "H5Pset_virtual failed");
  }
  const std::array<hsize_t, 2> dims = {rows, table.mColumns};
  const DataspaceHandle space_id(
      trace(5, H5Screate_simple(2, dims.data(), nullptr), "H5Screate_simple(2, ...)"));
  REQUIRE_FOR_CALLER(space_id>=0, "H5Screate_simple failed");
  const hid_t dataset_id = trace(4,
                                 H5Dcreate2(parentId, name.c_str(), H5T_NATIVE_DOUBLE, space_id,
                                            H5P_DEFAULT, cparms_id, H5P_DEFAULT),
                                 "H5Dcreate2(", parentId, ", \"", name, "\", ...)");
  REQUIRE_FOR_CALLER(dataset_id>=0, "H5Dcreate2 failed");
  return dataset_id;
}

VirtualTable ReadVirtualTable(hid_t cparms_id, const std::string& name) {
  std::size_t count = 0;
  herr_t err = H5Pget_virtual_count(cparms_id, &count);
  REQUIRE_FOR_CALLER(err>=0, "H5Pget_virtual_count failed");
  VirtualTable table;
  for (std::size_t i = 0; i < count; ++i) {
    const DataspaceHandle here(H5Pget_virtual_vspace(cparms_id, i));
    REQUIRE_FOR_CALLER(here>=0, "H5Pget_virtual_vspace failed");
    const DataspaceHandle there(H5Pget_virtual_srcspace(cparms_id, i));
    REQUIRE_FOR_CALLER(there>=0, "H5Pget_virtual_srcspace failed");
    const std::optional<SelectedRows> rows = RowsOf(here);
    const std::optional<SelectedRows> source = RowsOf(there);
    const std::optional<std::string> file = NameIn(cparms_id, i, H5Pget_virtual_filename);
    const std::optional<std::string> dataset = NameIn(cparms_id, i, H5Pget_virtual_dsetname);
    const bool isRunOfRows = rows && source && file && dataset &&
                             rows->mColumns == source->mColumns &&
                             rows->mRows.Size() == source->mRows.Size();
    REQUIRE_FOR_CALLER(isRunOfRows, name << " is virtual, and maps something else than runs of whole rows");
    table.mColumns = rows->mColumns;
    table.mMappings.push_back(
        {*file, *dataset, source->mTableRows, source->mRows, rows->mRows.mFirst});
  }
  double fill = 0;
  err = H5Pget_fill_value(cparms_id, H5T_NATIVE_DOUBLE, &fill);
  table.mIsNaNElsewhere = err >= 0 && std::isnan(fill);
  return table;
}

}  // namespace Tables
