// The end of a file that a program makes.
#pragma once

#include <functional>
#include <string>

#include "Utils/Process/Files.hpp"
#include "Utils/Store/CachedH5File.hpp"

/// Flushes a file that was written and has been closed, and the entry of its folder. Fails unless
/// it still has its name, and is as it was closed; "what" it is, such as "the join", is said then.
void FlushOutputToDisk(const Vexa::FileDescriptor& written, const std::string& path,
                       const std::string& what);

/// Makes a new file, whole or not at all: creates it, which fails where anything has the name, lets
/// `write` write all of it, closes and flushes it. If anything fails, it is removed. The cache is
/// purged, so no handle on any file can be used afterwards.
void MakeOutput(const std::string& path, const std::string& what,
                const std::function<void(CachedH5File&)>& write);
