#include "Utils/ErrorHandling/MyErr.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>

#include "Utils/ErrorHandling/TestOutput.hpp"
#include "Utils/Process/RunInformation.hpp"

namespace {

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

  // What is no text of ours stays as it is.
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  MyErr << "a";
  std::filesystem::remove(path);
  const std::string data("data\n\0of a user", 15);
  std::ofstream(path) << data;
  MyErr << "b";
  EXPECT_EQ(contents(), data);
  std::filesystem::remove(path);
  std::cerr.rdbuf(buffer);
  EXPECT_EQ(standardError.str(), "[997]one 1\ntwo\n[997]three\n[997]a[997]b");
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
