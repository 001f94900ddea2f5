#include "Executables/Kelmor/HelpText.hpp"

#include <ranges>
#include <string_view>

namespace {

constexpr char sUsage[] = R"(
Usage:  Kelmor [options] file [file ...]

This is for h5-files written with CachedH5File or H5DatWriter.
Checks that all files have identical variables and structures, then
concatenates them and writes the result to the specified output
file.  Non-monotonic time steps are removed (but see -NoWipe) and
datasets are compressed if it is supported (but see -NoGzip).
Note: the order of files is SIGNIFICANT.
)";

constexpr char sSerialNote[] =
    R"(This routine was written as a serial program.  It is unknown if
(and therefore unlikely that) it runs correctly in parallel.
If you want this routine to run in parallel, please (upgrade and)
thoroughly test that it works correctly on multiple processors.
)";

constexpr char sOptions[] = R"(
BASIC OPTIONS:
  -o string       # Output filename.
  -skip Glob      # skip datasets that match Glob
  -v              # be verbose
  -h              # Show this help message and exit.
ADVANCED OPTIONS:
  -DeltaT double  # Only time-steps separated by >=DeltaT will be kept
                  # (default 1e-10)
  -cachesize      # size of H5-cache in bytes (default 1e9)
  -NoWipe         # Do **NOT** wipe non-monotonic time-steps
  -NoGzip         # Do **NOT** gzip any datasets)";

// Pads each line with blanks to the same width.
std::string PaddedBlock(std::string_view text) {
  constexpr std::size_t width = 71;
  std::string block;
  for (const auto& part : std::views::split(text, '\n')) {
    const std::string_view line(part.begin(), part.end());
    block.append(line).append(width - line.size(), ' ').append("\n");
  }
  return block;
}

}  // namespace

std::string HelpText() {
  return PaddedBlock(sUsage) + sSerialNote + PaddedBlock(sOptions);
}
