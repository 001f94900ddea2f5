#include "Utils/H5/H5_Storage.hpp"

#include <array>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/H5/Handle.hpp"

namespace {

using Location = std::source_location;

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

std::vector<H5_Filter> ReadFilters(hid_t dataset_id, Location where) {
  PropertyListHandle cparms_id(H5Dget_create_plist(dataset_id));
  REQUIRE_AT(where, cparms_id>=0, "H5Dget_create_plist failed");
  const int count = H5Pget_nfilters(cparms_id);
  REQUIRE_AT(where, count>=0, "H5Pget_nfilters failed");
  std::vector<H5_Filter> filters;
  for (int i = 0; i < count; ++i) {
    unsigned flags = 0;
    unsigned parameter = 0;
    std::size_t values = 1;  // of the parameters only the first is of interest
    std::array<char, 256> name{};
    const H5Z_filter_t number = H5Pget_filter2(cparms_id, static_cast<unsigned>(i), &flags, &values,
                                               &parameter, name.size() - 1, name.data(), nullptr);
    REQUIRE_AT(where, number>=0, "H5Pget_filter2 failed");
    filters.push_back({number, parameter, FilterName(number, name.data(), parameter)});
  }
  const herr_t err = cparms_id.Close();
  REQUIRE_AT(where, 0==err, "H5Pclose failed");
  return filters;
}

void RequireKnownFilters(const std::vector<H5_Filter>& filters, const std::string& name,
                         Location where) {
  int deflates = 0;
  for (const H5_Filter& filter : filters) {
    const H5Z_filter_t number = filter.mNumber;
    deflates += number == H5Z_FILTER_DEFLATE ? 1 : 0;
    const bool isKnown = number == H5Z_FILTER_DEFLATE || number == H5Z_FILTER_SHUFFLE ||
                         number == H5Z_FILTER_FLETCHER32;
    REQUIRE_AT(where, isKnown && deflates<=1,
               name << " was written with other filters than shuffle, deflate and fletcher32: "
                    << filter.mName);
  }
}

H5_Storage ReadStorage(hid_t dataset_id, Location where) {
  H5_Storage storage;
  for (H5_Filter& filter : ReadFilters(dataset_id, where)) {
    storage.mFilters.push_back(std::move(filter.mName));
  }
  storage.mBytes = H5Dget_storage_size(dataset_id);
  return storage;
}

void RequireOwnStorage(hid_t cparms_id, const std::string& name, Location where) {
  REQUIRE_AT(where, H5Pget_layout(cparms_id)!=H5D_VIRTUAL && H5Pget_external_count(cparms_id)==0,
             name << " has its values in other files");
}

void RequireReadableDoubles(hid_t dataset_id, const std::string& name, Location where) {
  RequireKnownFilters(ReadFilters(dataset_id, where), name, where);
  DatatypeHandle type_id(H5Dget_type(dataset_id));
  REQUIRE_AT(where, type_id>=0, "H5Dget_type failed");
  {
    const MuteH5Errors mute;
    H5T_cdata_t* conversion = nullptr;
    REQUIRE_AT(where, H5Tfind(type_id,H5T_NATIVE_DOUBLE,&conversion)!=nullptr,
               name << " holds what is no number");
  }
  const herr_t err = type_id.Close();
  REQUIRE_AT(where, 0==err, "H5Tclose failed");
}
