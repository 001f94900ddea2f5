// Whether the type of a dataset is one that the library can make doubles or texts of. The library
// (1.10.8, tried) believes what a file says of a type: it reads bits beyond an element, and writes
// beyond its own memory when it is asked for the creation list of a dataset whose type is damaged.
// So the type is looked at before anything else.
#pragma once

#include <hdf5.h>

#include <string>

#include "Utils/HDF5/Handle.hpp"

namespace Vexa_H5 {

/// Returns the type of an open dataset. Fails with "H5Dread failed for name=..." unless that is an
/// integer, a floating-point number or an enumeration whose bits all lie within an element, none in
/// two fields: of any size that doubles can hold the values of, byte order and layout.
DatatypeHandle RequireNumbers(hid_t dataset_id, const std::string& name);

/// Fails if the fill value of a dataset, whose creation list this is, has another size than the
/// elements of its type. What was never written would be read from beyond the fill value.
void RequireFittingFillValue(hid_t cparms_id, hid_t type_id, const std::string& name);

/// Fails unless the type of an open dataset is such a number, or strings.
void RequireStringsOrNumbers(hid_t dataset_id, const std::string& name);

}  // namespace Vexa_H5
