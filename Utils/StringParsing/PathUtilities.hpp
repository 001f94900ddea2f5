// Paths as text, and texts of system errors.
#pragma once

#include <string>

#include "Utils/Process/SystemError.hpp"

#pragma GCC visibility push(default)

/// The part after the last '/', trailing ones aside: "a/b/" gives "b". "/" for a path that is
/// empty or made of '/' only.
std::string GetFilenameFromPath(const std::string& path);

/// The part before the last '/', trailing ones aside: "a//b/" gives "a", "/a" gives "/", "a" gives
/// "."; "/" for a path that is empty or made of '/' only.
std::string GetDirectoryFromPath(const std::string& path);

/// The path with all links and dots resolved. Fails, with the system's reason, if it does not
/// exist or cannot be reached.
std::string Realpath(const std::string& path);

bool PathIsAbsolute(const std::string& path);

#pragma GCC visibility pop
