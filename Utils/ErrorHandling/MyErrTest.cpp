#include "Utils/ErrorHandling/MyErr.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "Utils/ErrorHandling/TestSupport/TestOutput.hpp"
#include "Utils/ErrorHandling/Trace.hpp"
#include "Utils/Process/RunInformation.hpp"

namespace {

namespace fs = std::filesystem;

// The rank must be one that no other test uses: tests run at the same time in one directory.
std::string ErrorFileOf(int rank) {
  return RunDirectory() + "/Errors" + std::to_string(rank) + ".txt";
}

std::string Contents(const std::string& path) {
  return (std::ostringstream() << std::ifstream(path).rdbuf()).str();
}

TEST(MyErrTest, EveryStatementGoesToBothSinks) {
  const FakeRuntime runtime(997);
  const std::string path = ErrorFileOf(997);
  testing::internal::CaptureStderr();
  MyErr << "one " << 1 << std::endl << "two\n";
  MyErr << "three\n";
  EXPECT_EQ(Contents(path), "one 1\ntwo\nthree\n");

  // A crash leaves such an end, which is no reason to lose what comes.
  std::ofstream(path, std::ios::trunc) << std::string(512, '\0');
  MyErr << "a\033[2J\xc2\x9b\tb\n";
  EXPECT_EQ(Contents(path), std::string(512, '\0') + "a\\x1b[2J\\x9b\tb\n");
  fs::remove(path);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "[997]one 1\ntwo\n[997]three\n[997]a\\x1b[2J\\x9b\tb\n");
}

// What others put in the place of the error file stays as it is.
TEST(MyErrTest, NothingIsWrittenToWhatIsNoErrorFileOfOurs) {
  const std::string path = ErrorFileOf(995);
  const std::string other = path + ".other";
  const std::string signature = "\x89HDF\r\n\x1a\n";
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"it is a symbolic link", [&] { fs::create_symlink(other, path); }},  // leads nowhere
      {"it does not have one name",
       [&] { std::ofstream(other) << "", fs::create_hard_link(other, path); }},
      {"it is not a regular file", [&] { mkfifo(path.c_str(), 0600); }},
      {"it is an HDF5 file", [&] { std::ofstream(path) << std::string(1024, ' ') + signature; }},
      {"it is an HDF5 file", [&] { std::ofstream(path) << signature; }}};
  for (const auto& [reason, make] : cases) {
    make();
    const auto run = [] {
      const FakeRuntime runtime(995);
      MyErr << "told\n";
      MyErr << "again";
      std::exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0),
                "^\\[995\\]told\nThis is not in '" + path + "': " + reason + "\n\\[995\\]again$");
    EXPECT_TRUE(!fs::is_regular_file(path) || Contents(path).find("told") == std::string::npos);
    fs::remove(path);
    fs::remove(other);
  }
}

TEST(MyErrTest, AClosedPipeKeepsNoReportFromTheFile) {
  const FakeRuntime runtime(996);
  const auto run = [] {
    int ends[2];
    const bool isMade = pipe(ends) == 0 && close(ends[0]) == 0 && dup2(ends[1], STDERR_FILENO) >= 0;
    MyErr << (isMade ? "told\n" : "no pipe\n");
    // A write of the program's own takes its course.
    std::exit(static_cast<int>(write(ends[1], "x", 1)));
  };
  EXPECT_EXIT(run(), testing::KilledBySignal(SIGPIPE), "");
  EXPECT_EQ(Contents(ErrorFileOf(996)), "told\n");
  fs::remove(ErrorFileOf(996));
}

TEST(TraceTest, PrintsFromItsLevelOn) {
  testing::internal::CaptureStdout();
  const Trace trace(5);
  EXPECT_EQ(trace(5, 7L, "H5Gclose(", 3, ")"), 7L);
  EXPECT_EQ(trace(6, -1, "not printed"), -1);
  const FakeRuntime runtime(12);
  trace.Line(2, "opens ", 'x');
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "[??]     5 H5Gclose(3)=7\n[12]  2 opens x\n");
}

}  // namespace
