#include "Utils/Tables/Storage.hpp"

#include <array>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/StoredChunks.hpp"

namespace Tables {

namespace {

std::string FilterName(H5Z_filter_t number, const std::string& storedName, unsigned level) {
  switch (number) {
    case H5Z_FILTER_SHUFFLE:
      return "shuffle";
    case H5Z_FILTER_DEFLATE:
      return "deflate " + std::to_string(level);
    case H5Z_FILTER_FLETCHER32:
      return "fletcher32";
    default:
      return storedName.empty() ? "filter " + std::to_string(number) : storedName;
  }
}

}  // namespace

bool Filter::HasItsParameters() const {
  const unsigned highestLevel = 9;
  switch (mNumber) {
    case H5Z_FILTER_SHUFFLE:
      return mParameters == 1 && mParameter > 0;
    case H5Z_FILTER_DEFLATE:
      return mParameters == 1 && mParameter <= highestLevel;
    default:  // the checksum has none, and the library looks at none
      return true;
  }
}

std::vector<Filter> ReadFilters(hid_t cparms_id) {
  const int count = H5Pget_nfilters(cparms_id);
  REQUIRE_FOR_CALLER(count>=0, "H5Pget_nfilters failed");
  std::vector<Filter> filters;
  for (int i = 0; i < count; ++i) {
    unsigned flags = 0;
    unsigned parameter = 0;
    std::size_t parameters = 1;  // room for so many; then how many there are
    std::array<char, 256> name{};
    const H5Z_filter_t number =
        H5Pget_filter2(cparms_id, static_cast<unsigned>(i), &flags, &parameters, &parameter,
                       name.size() - 1, name.data(), nullptr);
    REQUIRE_FOR_CALLER(number>=0, "H5Pget_filter2 failed");
    filters.push_back({number, parameters, parameter, FilterName(number, name.data(), parameter)});
  }
  return filters;
}

void RequireKnownFilters(const std::vector<Filter>& filters, const std::string& name) {
  int deflates = 0;
  for (const Filter& filter : filters) {
    const H5Z_filter_t number = filter.mNumber;
    deflates += number == H5Z_FILTER_DEFLATE ? 1 : 0;
    const bool isKnown = number == H5Z_FILTER_DEFLATE || number == H5Z_FILTER_SHUFFLE ||
                         number == H5Z_FILTER_FLETCHER32;
    REQUIRE_FOR_CALLER(isKnown && deflates<=1,
               name << " was written with other filters than shuffle, deflate and fletcher32: "
                    << filter.mName);
    REQUIRE_FOR_CALLER(filter.HasItsParameters(),
               name << " has a filter with parameters that it does not take: " << filter.mName
                    << " (" << filter.mParameters << " parameters, the first "
                    << filter.mParameter << ")");
  }
}

void RequireKnownFilters(hid_t dataset_id, const std::string& name) {
  Vexa_H5::PropertyListHandle cparms_id(H5Dget_create_plist(dataset_id));
  REQUIRE_FOR_CALLER(cparms_id>=0, "H5Dget_create_plist failed");
  RequireKnownFilters(ReadFilters(cparms_id), name);
  cparms_id.Close();
}

Storage ReadStorage(hid_t dataset_id) {
  Vexa_H5::PropertyListHandle cparms_id(H5Dget_create_plist(dataset_id));
  REQUIRE_FOR_CALLER(cparms_id>=0, "H5Dget_create_plist failed");
  Storage storage;
  for (Filter& filter : ReadFilters(cparms_id)) {
    storage.mFilters.push_back(std::move(filter.mName));
  }
  storage.mBytes =
      Vexa_H5::LookUpStoredBytes(dataset_id, Vexa_H5::ReadChunkGrid(dataset_id, cparms_id));
  cparms_id.Close();
  return storage;
}

void RequireOwnStorage(hid_t cparms_id, const std::string& name) {
  REQUIRE_FOR_CALLER(H5Pget_layout(cparms_id)!=H5D_VIRTUAL && H5Pget_external_count(cparms_id)==0,
             name << " has its values in other files");
}

}  // namespace Tables
