// Where and how a program was built, and how it was started. Every text ends with a newline.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// The working directory when the program started, which a later chdir() does not change;
/// "." if there was none to be had.
const std::string& RunDirectory();

/// Build host and source directory as the build names them (VEXA_BUILD_HOST and
/// VEXA_BUILD_DIRECTORY of CMake, which by default name neither a machine nor a path of it), and
/// whether error checking was compiled in.
std::string InfoAtCompile();

/// Which version of this library the program was linked with.
std::string InfoAtLink();

/// The command line, by which process and when it runs, and the version.
std::string InfoAtRuntime(int argc, char** argv);

#pragma GCC visibility pop
