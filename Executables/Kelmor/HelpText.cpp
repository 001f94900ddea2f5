#include "Executables/Kelmor/HelpText.hpp"

#include <string_view>

namespace {

constexpr std::string_view sUsage[] = {
    "",
    "Usage:  Kelmor [options] file [file ...]",
    "",
    "This is for h5-files written with CachedH5File or H5DatWriter.",
    "Checks that all files have identical variables and structures, then",
    "concatenates them and writes the result to the specified output",
    "file.  Non-monotonic time steps are removed (but see -NoWipe) and",
    "datasets are compressed if it is supported (but see -NoGzip).",
    "Note: the order of files is SIGNIFICANT.",
    "",
};

constexpr char sSerialNote[] =
    "This routine was written as a serial program.  It is unknown if\n"
    "(and therefore unlikely that) it runs correctly in parallel.\n"
    "If you want this routine to run in parallel, please (upgrade and)\n"
    "thoroughly test that it works correctly on multiple processors.\n";

constexpr std::string_view sOptions[] = {
    "",
    "BASIC OPTIONS:",
    "  -o string       # Output filename.",
    "  -skip Glob      # skip datasets that match Glob",
    "  -v              # be verbose",
    "  -h              # Show this help message and exit.",
    "ADVANCED OPTIONS:",
    "  -DeltaT double  # Only time-steps separated by >=DeltaT will be kept",
    "                  # (default 1e-10)",
    "  -cachesize      # size of H5-cache in bytes (default 1e9)",
    "  -NoWipe         # Do **NOT** wipe non-monotonic time-steps",
    "  -NoGzip         # Do **NOT** gzip any datasets",
};

template <std::size_t N>
std::string PaddedBlock(const std::string_view (&lines)[N]) {
  constexpr std::size_t width = 71;
  std::string block;
  for (const std::string_view line : lines) {
    block.append(line).append(width - line.size(), ' ').append("\n");
  }
  return block;
}

}  // namespace

std::string HelpText() {
  return PaddedBlock(sUsage) + sSerialNote + PaddedBlock(sOptions);
}
