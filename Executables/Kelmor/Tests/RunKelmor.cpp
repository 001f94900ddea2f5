#include "Executables/Kelmor/Tests/RunKelmor.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "Utils/HDF5/TestSupport/PlainH5.hpp"

namespace {

constexpr unsigned sSecondsOfLongestRun = 120;

// Takes what was printed to a file in memory.
std::string TakeText(int descriptor) {
  const std::string text = PlainH5::Bytes("/proc/self/fd/" + std::to_string(descriptor));
  close(descriptor);
  return text;
}

[[noreturn]] void BecomeProgram(const std::string& directory, char* const* argv, int output,
                                int errors) {
  const rlimit noCore = {0, 0};
  const int input = open("/dev/null", O_RDONLY);
  if (chdir(directory.c_str()) == 0 && dup2(input, STDIN_FILENO) >= 0 &&
      dup2(output, STDOUT_FILENO) >= 0 && dup2(errors, STDERR_FILENO) >= 0 &&
      setenv("VEXA_NO_BACKTRACE", "1", 1) == 0 && setrlimit(RLIMIT_CORE, &noCore) == 0) {
    alarm(sSecondsOfLongestRun);
    execv(argv[0], argv);
  }
  _exit(127);
}

}  // namespace

RunResult RunProgram(const std::string& program, const std::string& directory,
                     const Arguments& arguments) {
  const std::string errorFile = directory + "/Errors000.txt";
  std::filesystem::remove(errorFile);
  Arguments words = {program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);

  const int output = memfd_create("output", MFD_CLOEXEC);
  const int errors = memfd_create("errors", MFD_CLOEXEC);
  // A fork, since the peak of a process that was spawned begins with the peak of its parent; that
  // of a forked one begins with what its parent has at the moment.
  const pid_t pid = fork();
  if (pid == 0) {
    BecomeProgram(directory, argv.data(), output, errors);
  }
  EXPECT_GT(pid, 0);
  int status = 0;
  rusage usage{};
  EXPECT_EQ(wait4(pid, &status, 0, &usage), pid);
  RunResult result;
  result.mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.mOutput = TakeText(output);
  result.mErrors = TakeText(errors);
  result.mReports = PlainH5::Bytes(errorFile);
#ifndef __SANITIZE_ADDRESS__
  result.mPeakBytes = static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
#endif
  return result;
}
