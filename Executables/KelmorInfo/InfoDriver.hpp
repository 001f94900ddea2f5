#pragma once

/// The whole run; returns the exit status.
int RunInfo(int argc, char** argv);
