#pragma once

#include "Utils/CommandLine/CommandLineParser.hpp"

/// The whole run after the command line was read: opens, discovers, joins, cleans up.
void JoinFiles(const CommandLineParser& parser);
