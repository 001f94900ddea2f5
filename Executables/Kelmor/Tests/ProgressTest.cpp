#include "Executables/Kelmor/Progress.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>

#include "Executables/Kelmor/Tests/KelmorFixture.hpp"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

TEST(Progress, SaysWhatIsKnown) {
  constexpr std::uint64_t mebi = 1 << 20;
  struct Case {
    std::uint64_t mBytes;
    double mSeconds;
    const char* mText;
  };
  const Case cases[] = {
      {0, 9, "stage: dataset 3 of 9"},
      {mebi, 0.1, "stage: dataset 3 of 9, 1.00 MiB of 4.00 MiB"},
      {mebi, 2, "stage: dataset 3 of 9, 1.00 MiB of 4.00 MiB, 512 KiB/s, 6.0 sec left"},
      {4 * mebi, 2,
       "stage: dataset 3 of 9, 4.00 MiB of 4.00 MiB, 2.00 MiB/s, hardly any time left"},
      // More was read than the files were thought to have.
      {9 * mebi, 2,
       "stage: dataset 3 of 9, 4.00 MiB of 4.00 MiB, 2.00 MiB/s, hardly any time left"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ProgressText("stage", 3, 9, c.mBytes, 4 * mebi, c.mSeconds), c.mText);
  }
}

class ProgressTest : public KelmorFixture {
 protected:
  struct Shown {
    int mStatus = -1;
    std::string mTerminal;
  };

  // Runs the tool with a terminal for standard error, and standard output elsewhere.
  Shown RunOnTerminal(const Arguments& arguments, const char* terminal, const char* noProgress) {
    CloseInputs();
    std::filesystem::remove(Path("out.h5"));
    Arguments words = {KELMOR_PROGRAM, "-o", "out.h5"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) {
      argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    int master = -1;
    const winsize size = {24, 60, 0, 0};
    const pid_t pid = forkpty(&master, nullptr, nullptr, &size);
    if (pid == 0) {
      const int output = open("/dev/null", O_WRONLY);
      if (chdir(mDir.Path().c_str()) == 0 && dup2(output, STDOUT_FILENO) >= 0 &&
          setenv("VEXA_NO_BACKTRACE", "1", 1) == 0 && setenv("TERM", terminal, 1) == 0 &&
          (noProgress == nullptr ? unsetenv("VEXA_NO_PROGRESS")
                                 : setenv("VEXA_NO_PROGRESS", noProgress, 1)) == 0) {
        execv(argv[0], argv.data());
      }
      _exit(127);
    }
    Shown shown;
    std::array<char, 4096> buffer;
    // The terminal of a process that has ended reads as an error.
    for (ssize_t bytes = 0; (bytes = read(master, buffer.data(), buffer.size())) > 0;) {
      shown.mTerminal.append(buffer.data(), static_cast<std::size_t>(bytes));
    }
    close(master);
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    shown.mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return shown;
  }
};

TEST_F(ProgressTest, ShowsALineOnATerminalAndTakesItBack) {
  WriteTimes(Input("a.h5"), "/x.dat", {0, 1, 2});
  WriteTimes(Input("a.h5"), "/y.dat", {0, 1, 2});
  const Shown shown = RunOnTerminal({"a.h5"}, "xterm", nullptr);
  EXPECT_EQ(shown.mStatus, 0);
  EXPECT_THAT(shown.mTerminal, StartsWith("\rjoining tables: dataset 1 of 2\x1b[K"));
  EXPECT_THAT(shown.mTerminal, EndsWith("\r\x1b[K"));
  EXPECT_THAT(shown.mTerminal, testing::Not(HasSubstr("\n")));

  EXPECT_EQ(RunOnTerminal({"-v", "a.h5"}, "xterm", nullptr).mTerminal, "");
  EXPECT_EQ(RunOnTerminal({"a.h5"}, "dumb", nullptr).mTerminal, "");
  EXPECT_EQ(RunOnTerminal({"a.h5"}, "xterm", "").mTerminal, "");
}

TEST_F(ProgressTest, MakesRoomForReports) {
  WriteTimes(Input("a.h5"), "/x.dat", {0, 1, 2});
  Input("ours.h5").Table("/x.dat", {{0, 1, 2}});
  Input("library.h5").Group("/x.dat");
  const std::pair<const char*, const char*> cases[] = {
      {"ours.h5", "\r\x1b[K\r\n#######################  REQUIRE  FAILED"},
      {"library.h5", "\r\x1b[KHDF5-DIAG: Error detected in HDF5"},
  };
  for (const auto& [input, beginning] : cases) {
    const Shown shown = RunOnTerminal({"a.h5", input}, "xterm", nullptr);
    EXPECT_EQ(shown.mStatus, 255);
    // Nothing of the line is left when the report begins.
    const std::size_t line = shown.mTerminal.rfind("dataset 1 of 1");
    ASSERT_NE(line, std::string::npos) << shown.mTerminal;
    EXPECT_THAT(shown.mTerminal.substr(line), HasSubstr(std::string("\x1b[K") + beginning));
  }
}

}  // namespace
