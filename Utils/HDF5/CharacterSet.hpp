#pragma once

#include <hdf5.h>

#include <span>
#include <string_view>

namespace Vexa_H5 {

/// Returns how strings that are written together are labelled in a new dataset or attribute: as
/// UTF-8 if all of them are valid UTF-8 and not all are ASCII, else as ASCII.
H5T_cset_t CharacterSetOf(std::span<const std::string_view> strings);

}  // namespace Vexa_H5
