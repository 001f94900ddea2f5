// A record of the classes and libraries that a run used, off unless a program enables it.
#pragma once

#include <string>

#pragma GCC visibility push(default)

namespace FactoryReporter {

/// Has all reports from here on appended to this file, each once. A file that cannot be written
/// silently gets nothing.
void EnableReporting(const std::string& path);
bool ReportingEnabled();

/// Appends the line "class: " + name.
void ReportClass(const std::string& name);
/// Appends the line "library: " + name.
void ReportLibrary(const std::string& name);

}  // namespace FactoryReporter

#pragma GCC visibility pop
