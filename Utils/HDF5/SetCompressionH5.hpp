#pragma once

#include <hdf5.h>

#include <string>

#pragma GCC visibility push(default)

/// Puts the filters shuffle, deflate at `level` (0 to 9) and Fletcher-32, in this order, on a
/// dataset-creation property list. `name` is only used in messages.
void SetCompressionH5(const hid_t& plist_id, int level, const std::string& name);

#pragma GCC visibility pop
