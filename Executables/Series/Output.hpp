// The end of a file that a program makes.
#pragma once

#include <string>

#include "Utils/Process/Files.hpp"

/// Flushes a file that was written and has been closed, and the entry of its folder. Fails unless
/// it still has its name, and is as it was closed; "what" it is, such as "the join", is said then.
void FlushOutputToDisk(const Vexa::FileDescriptor& written, const std::string& path,
                       const std::string& what);
