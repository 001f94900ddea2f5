// Kept for programs that know this header under its older path.
#pragma once

#include "Utils/Store/H5_Node.hpp"
