#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "Executables/Kelmor/Tests/KelmorFixture.hpp"

namespace {

namespace fs = std::filesystem;
using PlainH5::IsReport;
using testing::HasSubstr;

class CommandLineTest : public KelmorFixture {
 protected:
  CommandLineTest() { WriteTimes(Input("a.h5"), "/x.dat", {0, 1, 2}); }
  std::size_t Kept() const { return Output().Dims("/x.dat")[0]; }
};

TEST_F(CommandLineTest, HelpWinsOverEveryMistake) {
  const auto block = [](const Strings& lines) {
    std::string text;
    for (std::string line : lines) {
      line.resize(71, ' ');
      text += line + "\n";
    }
    return text;
  };
  const std::string usage =
      block({"", "Usage:  Kelmor [options] file [file ...]", "",
             "This is for h5-files written with CachedH5File or H5DatWriter.",
             "Checks that all files have identical variables and structures, then",
             "concatenates them and writes the result to the specified output",
             "file.  Non-monotonic time steps are removed (but see -NoWipe) and",
             "datasets are compressed if it is supported (but see -NoGzip).",
             "Note: the order of files is SIGNIFICANT.", ""});
  const std::string note =
      "This routine was written as a serial program.  It is unknown if\n"
      "(and therefore unlikely that) it runs correctly in parallel.\n"
      "If you want this routine to run in parallel, please (upgrade and)\n"
      "thoroughly test that it works correctly on multiple processors.\n";
  const std::string options =
      block({"", "BASIC OPTIONS:", "  -o string       # Output filename.",
             "  -skip Glob      # skip datasets that match Glob", "  -v              # be verbose",
             "  -h              # Show this help message and exit.", "ADVANCED OPTIONS:",
             "  -DeltaT double  # Only time-steps separated by >=DeltaT will be kept",
             "                  # (default 1e-10)",
             "  -cachesize      # size of H5-cache in bytes (default 1e9)",
             "  -NoWipe         # Do **NOT** wipe non-monotonic time-steps",
             "  -NoGzip         # Do **NOT** gzip any datasets"});
  ASSERT_EQ(usage.size(), 720u);
  ASSERT_EQ(options.size(), 864u);
  const std::string help = "============ help-text supplied by program ============\n" + usage +
                           note + options +
                           "\n=======================================================\n";
  const Arguments cases[] = {{"-h"},
                             {"-cachesize", "1", "-v", "-v", "missing.h5", "-help"},
                             {"a.h5", "-o", "out.h5", "--", "-h"}};
  for (const Arguments& arguments : cases) {
    const RunResult result = Run(arguments);
    EXPECT_EQ(result.mStatus, 0);
    EXPECT_EQ(result.mErrors, "");
    EXPECT_EQ(result.mOutput.substr(0, help.size()), help);
    EXPECT_FALSE(fs::exists(Path("out.h5")));
  }
}

TEST_F(CommandLineTest, ValuesOutOfRangeHaveTheirReport) {
  struct Mistake {
    Arguments mArguments;
    const char* mCondition;
    const char* mMessage;
  };
  const Mistake mistakes[] = {
      {{"-cachesize", "1000", "a.h5"},
       "tmp2>1e3 && tmp2<1.1e12",
       "cachesize=1000 seems unreasonable.\nIf desired, please change this REQUIRE"},
      {{"-cachesize", "1.1e12", "a.h5"}, "tmp2>1e3 && tmp2<1.1e12", "cachesize=1.1e+12 seems"},
      {{"-cachesize", "0-1e5", "a.h5"}, "tmp2>1e3 && tmp2<1.1e12", "cachesize=-100000 seems"},
      {{"-DeltaT", " -1", "a.h5"}, "DeltaT >= 0.0", "DeltaT most be non-negative."},
      {{"-DeltaT", "0-1e-300", "a.h5"}, "DeltaT >= 0.0", "DeltaT most be non-negative."},
      {{"a.h5", "no.h5", "neither.h5"}, "FileExists(Filenames[i])", "File no.h5 not found"},
      {{"a.h5", "--", "-v"}, "FileExists(Filenames[i])", "File -v not found"},
      {{"a.h5", "-skip", "/x|"}, "", "GlobMatches with comma-separated globs encountered empty"},
  };
  for (const Mistake& mistake : mistakes) {
    const std::string report = Refuse(mistake.mArguments);
    EXPECT_TRUE(IsReport(report, mistake.mCondition, mistake.mMessage)) << report;
  }
  EXPECT_THAT(Refuse({"no.h5"}), HasSubstr("\n#### Kelmor (line "));
}

TEST_F(CommandLineTest, ChecksComeInTheirOrder) {
  std::ofstream(Path("old.h5")) << "precious";
  std::ofstream(Path("bad.h5")) << "not HDF5";
  // Each line mends what the line before it was refused for.
  const std::pair<Arguments, const char*> lines[] = {
      {{"-DeltaT", "x", "-v", "-v", "-cachesize", "y", "no.h5"}, "boolean option 'v'"},
      {{"-DeltaT", "x", "-cachesize", "y", "no.h5"}, "Option-key 'DeltaT' was given the value 'x'"},
      {{"-DeltaT", "0-1", "-cachesize", "y", "no.h5"}, "Option-key 'cachesize' was given"},
      {{"-DeltaT", "0-1", "-cachesize", "5", "no.h5"}, "cachesize=5 seems unreasonable"},
      {{"-DeltaT", "0-1", "-cachesize", "5e3", "no.h5"}, "DeltaT most be"},
      {{"-DeltaT", "0", "-cachesize", "5e3", "no.h5"},
       "ERROR in CommandLineParser\nOption-key 'o' not given on command line.\n============ help"},
      {{"-DeltaT", "0", "-o", "old.h5", "bad.h5", "no.h5"}, "File no.h5 not found"},
      {{"-DeltaT", "0", "-o", "old.h5", "bad.h5"}, "bad.h5, ...) failed"},
      {{"-DeltaT", "0", "-o", "old.h5", "-skip", "*", "a.h5"}, "old.h5 already exists."},
  };
  for (const auto& [arguments, text] : lines) {
    const RunResult result = Run(arguments);
    EXPECT_EQ(result.mStatus, 255) << text;
    EXPECT_THAT(result.mErrors, HasSubstr(text));
  }
}

TEST_F(CommandLineTest, OptionsMayStandAnywhere) {
  WriteTimes(Input("-x.h5"), "/x.dat", {7});
  WriteTimes(Input("b.h5"), "/x.dat", {5, 6});
  // An option that does not exist takes a value and changes nothing.
  EXPECT_EQ(Join({"a.h5", "-typo", "no.h5", "b.h5", "-no-NoGzip", "--", "-x.h5"}), "");
  EXPECT_EQ(Kept(), 6u);
  EXPECT_EQ(Output().Filters("/x.dat").size(), 3u);
  Join({"-NoGzip", "a.h5", "-no-NoWipe", "b.h5"});
  EXPECT_EQ(Kept(), 5u);
  EXPECT_EQ(Output().Filters("/x.dat").size(), 0u);
  EXPECT_EQ(Join({"-skip", "/x.*", "a.h5", "-v"}),
            "opening 1 input files\nno datasets found.  Will not create out.h5\n");
}

TEST_F(CommandLineTest, ValuesUpToTheirBoundsAreTaken) {
  const std::pair<Arguments, std::size_t> cases[] = {
      {{"-cachesize", "1001"}, 3}, {{"-cachesize", "1000.5"}, 3}, {{"-cachesize", "1.0999e12"}, 3},
      {{"-DeltaT", "0"}, 3},       {{"-DeltaT", " -0.0"}, 3},     {{"-DeltaT", "3/2"}, 2},
      {{"-DeltaT", "1e300"}, 1},   {{"-DeltaT", " 1 "}, 3},
  };
  for (auto [arguments, kept] : cases) {
    arguments.push_back("a.h5");
    Join(arguments);
    EXPECT_EQ(Kept(), kept) << arguments[0] << " " << arguments[1];
  }
}

}  // namespace
