#include "Utils/Tables/Storage.hpp"

#include <array>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/StoredChunks.hpp"

namespace Tables {

namespace {

using ChunkCodec::Filter;

// "shuffle", "deflate 1", "fletcher32", or as HDF5 and the makers of further filters name them.
std::string NameOf(const Filter& filter) {
  switch (filter.mNumber) {
    case ChunkCodec::sShuffle:
      return "shuffle";
    case ChunkCodec::sDeflate:
      return "deflate " + std::to_string(filter.mParameter);
    case ChunkCodec::sFletcher32:
      return "fletcher32";
    default:
      return filter.mName.empty() ? "filter " + std::to_string(filter.mNumber) : filter.mName;
  }
}

}  // namespace

ChunkCodec::Filters ReadFilters(hid_t cparms_id) {
  const int count = H5Pget_nfilters(cparms_id);
  REQUIRE_FOR_CALLER(count>=0, "H5Pget_nfilters failed");
  ChunkCodec::Filters filters;
  for (int i = 0; i < count; ++i) {
    unsigned flags = 0;
    unsigned parameter = 0;
    std::size_t parameters = 1;  // room for so many; then how many there are
    std::array<char, 256> name{};
    const H5Z_filter_t number =
        H5Pget_filter2(cparms_id, static_cast<unsigned>(i), &flags, &parameters, &parameter,
                       name.size() - 1, name.data(), nullptr);
    REQUIRE_FOR_CALLER(number>=0, "H5Pget_filter2 failed");
    filters.push_back({number, parameters, parameter, name.data()});
  }
  return filters;
}

bool AreEdgesPlain(hid_t cparms_id) {
  unsigned chunkOptions = 0;
  const herr_t err = H5Pget_chunk_opts(cparms_id, &chunkOptions);
  REQUIRE_FOR_CALLER(err>=0, "H5Pget_chunk_opts failed");
  return (chunkOptions & H5D_CHUNK_DONT_FILTER_PARTIAL_CHUNKS) != 0;
}

void RequireKnownFilters(const ChunkCodec::Filters& filters, const std::string& name) {
  int deflates = 0;
  for (const Filter& filter : filters) {
    deflates += filter.mNumber == ChunkCodec::sDeflate ? 1 : 0;
    const bool isKnown = filter.mNumber == ChunkCodec::sDeflate ||
                         filter.mNumber == ChunkCodec::sShuffle ||
                         filter.mNumber == ChunkCodec::sFletcher32;
    REQUIRE_FOR_CALLER(isKnown && deflates<=1,
               name << " was written with other filters than shuffle, deflate and fletcher32: "
                    << NameOf(filter));
    REQUIRE_FOR_CALLER(filter.HasItsParameters(),
               name << " has a filter with parameters that it does not take: " << NameOf(filter)
                    << " (" << filter.mParameters << " parameters, the first "
                    << filter.mParameter << ")");
  }
}

Storage ReadStorage(hid_t dataset_id) {
  const Vexa_H5::PropertyListHandle cparms_id(H5Dget_create_plist(dataset_id));
  REQUIRE_FOR_CALLER(cparms_id>=0, "H5Dget_create_plist failed");
  Storage storage;
  for (const Filter& filter : ReadFilters(cparms_id)) {
    storage.mFilters.push_back(NameOf(filter));
  }
  if (H5Pget_layout(cparms_id) == H5D_VIRTUAL) {
    storage.mBytes = 0;
    return storage;
  }
  storage.mBytes =
      Vexa_H5::LookUpStoredBytes(dataset_id, Vexa_H5::ReadChunkGrid(dataset_id, cparms_id));
  return storage;
}

void RequireOwnStorage(hid_t cparms_id, const std::string& name) {
  const bool isVirtual = H5Pget_layout(cparms_id) == H5D_VIRTUAL;
  REQUIRE_FOR_CALLER(!isVirtual && H5Pget_external_count(cparms_id)==0,
             name << " has its values in other files"
                  << (isVirtual ? ", as in a view. Name its segments instead; \"KelmorInfo -v\" lists them"
                                : ""));
}

}  // namespace Tables
