#include "Executables/Kelmor/Options.hpp"

#include <iterator>
#include <string_view>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"

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

Options::Options(const CommandLineParser& parser, Output output) {
  const double DeltaT = parser.Get<double>("DeltaT", 1e-10);
  mDeltaT = DeltaT;
  mVerbose = parser.Get<bool>("v", false);
  mNoWipe = parser.Get<bool>("NoWipe", false);
  mNoGzip = parser.Get<bool>("NoGzip", false);
  const double tmp2 = parser.Get<double>("cachesize", 1e9);
  REQUIRE(tmp2>1e3 && tmp2<1.1e12, "cachesize=" << tmp2 << " seems unreasonable.\n"
                                                << "If desired, please change this REQUIRE");
  mCacheSize = static_cast<std::uint64_t>(tmp2);
  TheCachedH5FileHolder().SetMaxCacheSize(mCacheSize);
  REQUIRE(DeltaT >= 0.0, "DeltaT most be non-negative.");
  mSkip = parser.Get<std::string>("skip", "");
  mOutput =
      output == Output::Required ? parser.Get<std::string>("o") : parser.Get<std::string>("o", "");
  const MyVector<std::string> Filenames = parser.GetAllArguments();
  for (std::ptrdiff_t i = 0; i < Filenames.Size(); ++i) {
    REQUIRE(FileExists(Filenames[i]), "File " << Filenames[i] << " not found");
  }
  mInputs = Filenames;
}
