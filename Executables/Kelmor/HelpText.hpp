#pragma once

#include <string>

/// The help text of the tool: usage, the note about serial programs, options.
std::string HelpText();
