#pragma once

#pragma GCC visibility push(default)

/// This tells how a file is accessed. ReadWrite creates a missing file; ReadOnly fails on one.
enum H5AccessType { ReadWrite = 0, ReadOnly = 1 };

#pragma GCC visibility pop
