#include "Utils/ErrorHandling/MyErr.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <utility>

#include "Utils/ErrorHandling/TestOutput.hpp"
#include "Utils/Process/RunInformation.hpp"

namespace {

namespace fs = std::filesystem;

TEST(MyErrTest, EveryStatementGoesToBothSinks) {
  // A rank that no other test uses: tests run at the same time in one directory.
  const FakeRuntime runtime(997);
  const std::string path = RunDirectory() + "/Errors997.txt";
  const auto contents = [&path] {
    return (std::ostringstream() << std::ifstream(path).rdbuf()).str();
  };
  std::ostringstream standardError;
  std::streambuf* buffer = std::cerr.rdbuf(standardError.rdbuf());
  MyErr << "one " << 1 << std::endl << "two\n";
  MyErr << "three\n";
  EXPECT_EQ(contents(), "one 1\ntwo\nthree\n");

  // A crash leaves such an end, which is no reason to lose what comes.
  std::ofstream(path, std::ios::trunc) << std::string(512, '\0');
  MyErr << "a\033[2J\xc2\x9b\tb\n";
  EXPECT_EQ(contents(), std::string(512, '\0') + "a\\x1b[2J\\x9b\tb\n");
  std::filesystem::remove(path);
  std::cerr.rdbuf(buffer);
  EXPECT_EQ(standardError.str(), "[997]one 1\ntwo\n[997]three\n[997]a\\x1b[2J\\x9b\tb\n");
}

// What others put in the place of the error file stays as it is.
TEST(MyErrTest, NothingIsWrittenToWhatIsNoErrorFileOfOurs) {
  const std::string path = RunDirectory() + "/Errors995.txt";
  const std::string other = path + ".other";
  const std::string signature = "\x89HDF\r\n\x1a\n";
  const struct {
    std::function<void()> mMake;
    const char* mReason;
  } cases[] = {
      {[&] { fs::create_symlink(other, path); }, "it is a symbolic link"},  // leads nowhere
      {[&] { std::ofstream(other) << "", fs::create_symlink(other, path); },
       "it is a symbolic link"},
      {[&] { std::ofstream(other) << "", fs::create_hard_link(other, path); },
       "it does not have one name"},
      {[&] { fs::create_directory(path); }, "Is a directory"},
      {[&] { mkfifo(path.c_str(), 0600); }, "it is not a regular file"},
      {[&] { std::ofstream(path) << std::string(1024, ' ') + signature; }, "it is an HDF5 file"},
      {[&] { std::ofstream(path) << signature; }, "it is an HDF5 file"}};
  for (const auto& c : cases) {
    c.mMake();
    const auto size = [](const std::string& p) {
      return fs::is_regular_file(p) ? fs::file_size(p) : 0;
    };
    const auto before = std::pair(fs::exists(other), size(path));
    const auto run = [] {
      const FakeRuntime runtime(995);
      MyErr << "told\n";
      MyErr << "again";
      std::exit(0);
    };
    EXPECT_EXIT(
        run(), testing::ExitedWithCode(0),
        "^\\[995\\]told\nThis is not in '" + path + "': " + c.mReason + "\n\\[995\\]again$");
    EXPECT_EQ(std::pair(fs::exists(other), size(path)), before) << c.mReason;
    fs::remove(path);
    fs::remove(other);
  }
}

TEST(MyErrTest, AClosedPipeKeepsNoReportFromTheFile) {
  const FakeRuntime runtime(996);
  const std::string path = RunDirectory() + "/Errors996.txt";
  const auto run = [] {
    int ends[2];
    const bool isMade = pipe(ends) == 0 && close(ends[0]) == 0 && dup2(ends[1], STDERR_FILENO) >= 0;
    MyErr << (isMade ? "told\n" : "no pipe\n");
    // A write of the program's own takes its course.
    std::exit(static_cast<int>(write(ends[1], "x", 1)));
  };
  EXPECT_EXIT(run(), testing::KilledBySignal(SIGPIPE), "");
  EXPECT_EQ((std::ostringstream() << std::ifstream(path).rdbuf()).str(), "told\n");
  std::filesystem::remove(path);
}

}  // namespace
