// How much memory the process and the machine use. All sizes are in bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// Returns the resident set of this process, or 0 if the system does not tell. Allocates nothing,
/// so that it serves when memory is exhausted.
std::uint64_t GetCurrentRSS();

/// Returns the largest resident set so far. Allocates nothing either.
std::uint64_t GetPeakRSS();

/// Memory of the machine; all 0 if the system does not tell. `available` is what is free plus what
/// buffers and caches could give back; `committed` is what all processes have been promised.
void GetSystemMemoryBytes(std::uint64_t& total, std::uint64_t& available, std::uint64_t& committed,
                          std::uint64_t& commitLimit);

/// Address space and resident set of this process; both 0 if the system does not tell.
void GetMemoryUsageBytes(std::uint64_t& virtualBytes, std::uint64_t& residentBytes);

/// Returns both on one line, without a newline: "53.816 MiB vm, 7.2031 MiB res".
std::string MemoryUsage();

namespace Vexa {

/// Returns how much more memory this process may take for data and for what it reads of files: what
/// the machine has available, or what is left below the limit of its control group or of a group
/// above. Caches count as available.
std::uint64_t MemoryLeft();

/// Lets the process keep memory that it has freed, up to 128 MiB in blocks of up to 16 MiB, instead
/// of giving it back to the system at once. For programs that go through large buffers one after
/// the other: fresh pages cost more than what is done with them. Threads beyond NumberOfThreads(),
/// which only wait for files, share one such store.
void KeepFreedMemory();

/// Asks the system for large pages in fresh memory that will be filled at once: to be given a page
/// of 4 KiB costs more than to fill it. Nothing happens where there are none.
void AskForLargePages(void* memory, std::size_t bytes) noexcept;

/// Gives back to the system what all threads have freed, also what KeepFreedMemory() has kept.
void ReturnFreedMemory();

}  // namespace Vexa

#pragma GCC visibility pop
