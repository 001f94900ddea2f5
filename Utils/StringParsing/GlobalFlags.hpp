// A process-wide table of named texts that tell distant parts how the program runs, for example
// "HistoryFileRunMode". Set while the program starts, before threads read it.
#pragma once

#include <string>

#pragma GCC visibility push(default)

namespace GlobalFlags {

/// Sets the flag, or replaces its value.
void Set(const std::string& name, const std::string& value);
bool IsSet(const std::string& name);
/// The flag's value; fails if it is not set.
const std::string& Get(const std::string& name);

}  // namespace GlobalFlags

#pragma GCC visibility pop
