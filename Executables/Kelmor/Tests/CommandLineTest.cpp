#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "Executables/Kelmor/Tests/KelmorFixture.hpp"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class CommandLineTest : public KelmorFixture {
 protected:
  CommandLineTest() { WriteTimes(Input("a.h5"), "/x.dat", {0, 1, 2}); }
  std::size_t Kept() const { return PlainH5::File::Open(Path("out.h5")).Dims("/x.dat")[0]; }
};

TEST_F(CommandLineTest, MistakesAreReportedInTheOrderOfTheChecks) {
  std::ofstream(Path("old.h5")) << "mine";
  std::ofstream(Path("bad.h5")) << "not HDF5";
  // Each of the first lines mends what the line before it was refused for.
  const std::pair<Arguments, const char*> lines[] = {
      {{"-DeltaT", "x", "-v", "-v", "-cachesize", "y", "no.h5"}, "boolean option 'v'"},
      {{"-DeltaT", "x", "-cachesize", "y", "no.h5"}, "Option-key 'DeltaT' was given the value 'x'"},
      {{"-DeltaT", "0-1", "-cachesize", "5", "no.h5"}, "tmp2>1e3 && tmp2<1.1e12"},
      {{"-DeltaT", "0-1", "-cachesize", "5e3", "no.h5"}, "DeltaT >= 0.0"},
      {{"-DeltaT", "0", "-cachesize", "5e3", "no.h5"}, "Option-key 'o' not given"},
      {{"-DeltaT", "0", "-o", "old.h5", "bad.h5", "no.h5"}, "File no.h5 not found"},
      {{"-DeltaT", "0", "-o", "old.h5", "bad.h5"}, "bad.h5, ...) failed"},
      {{"-DeltaT", "0", "-o", "old.h5", "-skip", "*", "a.h5"}, "old.h5 already exists.\nCowardly"},
      {{"-o", "b/", "a.h5"}, "OutputFile 'b/' is not the name of a file"},
      {{"-cachesize", "1.1e12", "a.h5"}, "cachesize=1.1e+12 seems"},
      {{"-o", "new.h5", "a.h5", "-skip", "/x|"}, "GlobMatches with comma-separated globs"},
  };
  for (const auto& [arguments, text] : lines) {
    const RunResult result = Run(arguments);
    EXPECT_EQ(result.mStatus, 255) << text;
    EXPECT_THAT(result.mErrors, HasSubstr(text));
    EXPECT_FALSE(fs::exists(Path("new.h5")));
  }
}

TEST_F(CommandLineTest, OptionsMayStandAnywhereAndTakeValuesUpToTheirBounds) {
  WriteTimes(Input("-x.h5"), "/x.dat", {7});
  WriteTimes(Input("b.h5"), "/x.dat", {5, 6});
  // An option that does not exist takes a value and changes nothing.
  EXPECT_EQ(Join({"a.h5", "-typo", "no.h5", "b.h5", "-no-NoWipe", "--", "-x.h5"}), "");
  EXPECT_EQ(Kept(), 6u);
  EXPECT_EQ(Join({"-skip", "/x.*", "a.h5", "-v"}),
            "opening 1 input files\nno datasets found.  Will not create out.h5\n");
  const std::pair<Arguments, std::size_t> cases[] = {{{"-cachesize", "1000.5"}, 3},
                                                     {{"-cachesize", "1.0999e12"}, 3},
                                                     {{"-DeltaT", " -0.0"}, 3},
                                                     {{"-DeltaT", "3/2"}, 2}};
  for (auto [arguments, kept] : cases) {
    arguments.push_back("a.h5");
    Join(arguments);
    EXPECT_EQ(Kept(), kept) << arguments[0] << " " << arguments[1];
  }
}

}  // namespace
