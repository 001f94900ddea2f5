// Kept for programs that know this header under its older path.
#pragma once

#include "Utils/HDF5/SetCompressionH5.hpp"
