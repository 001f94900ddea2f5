#include "Executables/Series/Progress.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <tuple>

#include "Executables/Kelmor/Tests/KelmorFixture.hpp"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

TEST(Progress, SaysWhatIsKnown) {
  constexpr std::uint64_t mebi = 1 << 20;
  const std::tuple<std::uint64_t, double, const char*> cases[] = {
      {0, 9, "stage: dataset 3 of 9"},
      {mebi, 0.1, "stage: dataset 3 of 9, 1.00 MiB of 4.00 MiB"},
      {mebi, 2, "stage: dataset 3 of 9, 1.00 MiB of 4.00 MiB, 512 KiB/s, 6.0 sec left"},
      // More was read than the files were thought to have.
      {9 * mebi, 2,
       "stage: dataset 3 of 9, 4.00 MiB of 4.00 MiB, 2.00 MiB/s, hardly any time left"},
  };
  for (const auto& [bytes, seconds, text] : cases) {
    EXPECT_EQ(ProgressText("stage", "dataset", 3, 9, bytes, 4 * mebi, seconds), text);
  }
}

class ProgressTest : public KelmorFixture {
 protected:
  // What a run shows on a terminal that is its standard error; standard output is elsewhere.
  std::string Terminal(const std::string& options, int status = 0,
                       const std::string& settings = "TERM=xterm") {
    std::filesystem::remove(Path("out.h5"));
    const std::string command = "stty cols 60; env -u VEXA_NO_PROGRESS " + settings + " '" +
                                KELMOR_PROGRAM + "' -o out.h5 " + options + " >/dev/null";
    const RunResult result = Run({"-qec", command, "/dev/null"}, "script");
    EXPECT_EQ(result.mStatus, status);
    return result.mOutput;
  }
};

TEST_F(ProgressTest, ShowsALineOnATerminalAndTakesItBack) {
  WriteTimes(Input("a.h5"), "/x.dat", {0, 1, 2});
  WriteTimes(Input("a.h5"), "/y.dat", {0, 1, 2});
  const std::string shown = Terminal("a.h5");
  EXPECT_THAT(shown, StartsWith("\rjoining tables: dataset 1 of 2\x1b[K"));
  EXPECT_THAT(shown, EndsWith("\r\x1b[K"));
  EXPECT_THAT(shown, testing::Not(HasSubstr("\n")));

  EXPECT_EQ(Terminal("-v a.h5"), "");
  EXPECT_EQ(Terminal("a.h5", 0, "TERM=dumb"), "");
  EXPECT_EQ(Terminal("a.h5", 0, "TERM=xterm VEXA_NO_PROGRESS="), "");

  // What nobody means is said once, to whoever sits there. Runs of other tests see that nobody else
  // is told.
  WriteTimes(Input("late.h5"), "/x.dat", {5, 6});
  EXPECT_THAT(Terminal("-nowipe late.h5 late.h5 a.h5", 0, "TERM=dumb"),
              StartsWith("Kelmor: ignoring what is no option: -nowipe with its value 'late.h5'\r\n"
                         "Kelmor: no step was kept of late.h5; KelmorInfo -plan tells more\r\n"));

  // Nothing of the line is left when a report begins.
  Input("b.h5").Table("/x.dat", {{0, 1, 2}});
  const std::string reported = Terminal("a.h5 b.h5", 255);
  EXPECT_THAT(reported.substr(reported.rfind("dataset 1 of 2")),
              HasSubstr("\x1b[K\r\x1b[K\r\n#######################  REQUIRE  FAILED"));
}

}  // namespace
