#include "Utils/HDF5/SetCompressionH5.hpp"

#include "Utils/ErrorHandling/Require.hpp"

void SetCompressionH5(const hid_t& plist_id, int level, const std::string& name) {
  REQUIRE(H5Pset_shuffle(plist_id)>=0, "Cannot set shuffle on " << name);
  REQUIRE(H5Pset_deflate(plist_id,level)>=0, "Cannot set deflate on " << name);
  REQUIRE(H5Pset_fletcher32(plist_id)>=0, "Cannot set fletcher32 on " << name);
}
