#include "Utils/H5/H5_StringLengths.hpp"

#include <cstdint>
#include <fstream>
#include <functional>
#include <numeric>
#include <span>
#include <vector>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/H5/H5_RawChunks.hpp"
#include "Utils/H5/H5_Utils.hpp"
#include "Utils/H5/Handle.hpp"

namespace {

using Location = std::source_location;

constexpr std::size_t sLengthBytes = 4;
constexpr std::size_t sIndexBytes = 4;

// Adds up the lengths of strings as their elements come by.
class LengthSum {
 public:
  LengthSum(hid_t dataset_id, hsize_t elementBytes, const std::string& name, Location where)
      : mElementBytes(elementBytes), mName(name), mWhere(where) {
    const Handle<H5Fclose> file_id(H5Iget_file_id(dataset_id));
    REQUIRE_AT(mWhere, file_id>=0, "H5Iget_file_id failed");
    const herr_t err = H5Fget_filesize(file_id, &mFileSize);
    REQUIRE_AT(mWhere, err>=0, "H5Fget_filesize failed");
  }

  void Add(std::span<const std::byte> elements) {
    for (std::size_t at = 0; at < elements.size(); at += mElementBytes) {
      std::uint64_t length = 0;
      for (std::size_t i = sLengthBytes; i-- > 0;) {
        length = length << 8 | std::to_integer<std::uint64_t>(elements[at + i]);
      }
      mSum += length;
    }
    REQUIRE_AT(mWhere, mSum<=mFileSize, mName << " claims strings of " << mSum
                                              << " characters, but its file has " << mFileSize
                                              << " bytes");
  }

 private:
  hsize_t mElementBytes;
  const std::string& mName;
  Location mWhere;
  hsize_t mFileSize = 0;
  hsize_t mSum = 0;
};

std::string FileOf(hid_t dataset_id, Location where) {
  const ssize_t length = H5Fget_name(dataset_id, nullptr, 0);
  REQUIRE_AT(where, length>=0, "H5Fget_name failed");
  std::string name(static_cast<std::size_t>(length), '\0');
  const ssize_t read = H5Fget_name(dataset_id, name.data(), name.size() + 1);
  REQUIRE_AT(where, read==length, "H5Fget_name failed");
  return name;
}

void AddContiguous(hid_t dataset_id, hsize_t bytes, LengthSum& sum, Location where) {
  const haddr_t address = H5Dget_offset(dataset_id);
  if (address == HADDR_UNDEF) {
    return;  // never written
  }
  std::vector<std::byte> elements(bytes);
  std::ifstream file(FileOf(dataset_id, where), std::ios::binary);
  file.seekg(static_cast<std::streamoff>(address));
  file.read(reinterpret_cast<char*>(elements.data()), static_cast<std::streamsize>(bytes));
  REQUIRE_AT(where, static_cast<hsize_t>(file.gcount())==bytes, "The file ends within the dataset");
  sum.Add(elements);
}

}  // namespace

hsize_t Vexa_H5::ElementBytes(hid_t object_id, hid_t type_id, Location where) {
  if (H5Tis_variable_str(type_id) <= 0) {
    return H5Tget_size(type_id);
  }
  const Handle<H5Fclose> file_id(H5Iget_file_id(object_id));
  REQUIRE_AT(where, file_id>=0, "H5Iget_file_id failed");
  const PropertyListHandle fcpl_id(H5Fget_create_plist(file_id));
  REQUIRE_AT(where, fcpl_id>=0, "H5Fget_create_plist failed");
  std::size_t addressBytes = 0;
  std::size_t sizeBytes = 0;
  const herr_t err = H5Pget_sizes(fcpl_id, &addressBytes, &sizeBytes);
  REQUIRE_AT(where, err>=0, "H5Pget_sizes failed");
  return sLengthBytes + addressBytes + sIndexBytes;
}

void Vexa_H5::RequireStringsInFile(hid_t dataset_id, const std::string& name, Location where) {
  const PropertyListHandle cparms_id(H5Dget_create_plist(dataset_id));
  REQUIRE_AT(where, cparms_id>=0, "H5Dget_create_plist failed");
  const DatatypeHandle type_id(H5Dget_type(dataset_id));
  REQUIRE_AT(where, type_id>=0, "H5Dget_type failed");
  if (H5Tis_variable_str(type_id) <= 0) {
    return;  // its elements hold no lengths
  }
  const DataspaceHandle space_id(H5Dget_space(dataset_id));
  REQUIRE_AT(where, space_id>=0, "H5Dget_space failed");
  const hsize_t elementBytes = ElementBytes(dataset_id, type_id, where);
  LengthSum sum(dataset_id, elementBytes, name, where);
  const H5D_layout_t layout = H5Pget_layout(cparms_id);
  if (layout == H5D_CONTIGUOUS) {
    const std::vector<hsize_t> dims = Extents(space_id, where);
    AddContiguous(dataset_id,
                  std::accumulate(dims.begin(), dims.end(), elementBytes, std::multiplies<>()), sum,
                  where);
  } else {
    REQUIRE_AT(where, layout==H5D_CHUNKED, name << " has its strings in its header");
    H5_RawChunks(dataset_id, name, where).ForEach([&sum](const std::vector<std::byte>& elements) {
      sum.Add(elements);
    });
  }
}
