#include "Executables/Kelmor/Tests/RunKelmor.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "Utils/H5/TestSupport/PlainH5.hpp"

namespace {

constexpr std::chrono::seconds sLongestRun(120);

// Output of the tool on its way to us.
struct Pipe {
  Pipe() { EXPECT_EQ(pipe2(mEnds, O_CLOEXEC), 0); }
  ~Pipe() {
    CloseWriteEnd();
    close(mEnds[0]);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  int ReadEnd() const { return mEnds[0]; }
  int WriteEnd() const { return mEnds[1]; }
  void CloseWriteEnd() {
    if (mEnds[1] >= 0) {
      close(mEnds[1]);
      mEnds[1] = -1;
    }
  }

 private:
  int mEnds[2] = {-1, -1};
};

[[noreturn]] void BecomeProgram(const std::string& directory, char* const* argv, const Pipe& output,
                                const Pipe& errors, std::uint64_t largestFile) {
  const rlimit noCore = {0, 0};
  const rlimit fileSize = {largestFile, largestFile};
  const int input = open("/dev/null", O_RDONLY);
  const bool isReady =
      chdir(directory.c_str()) == 0 && dup2(input, STDIN_FILENO) >= 0 &&
      dup2(output.WriteEnd(), STDOUT_FILENO) >= 0 && dup2(errors.WriteEnd(), STDERR_FILENO) >= 0 &&
      setenv("VEXA_NO_BACKTRACE", "1", 1) == 0 && setrlimit(RLIMIT_CORE, &noCore) == 0 &&
      (largestFile == RLIM_INFINITY || setrlimit(RLIMIT_FSIZE, &fileSize) == 0);
  if (isReady) {
    execv(argv[0], argv);
  }
  _exit(127);
}

// Collects both streams until the tool has closed them; false if that took too long.
bool Collect(const Pipe& output, const Pipe& errors, RunResult& result) {
  const auto deadline = std::chrono::steady_clock::now() + sLongestRun;
  std::array<pollfd, 2> streams = {{{output.ReadEnd(), POLLIN, 0}, {errors.ReadEnd(), POLLIN, 0}}};
  const std::array<std::string*, 2> texts = {&result.mOutput, &result.mErrors};
  while (streams[0].fd >= 0 || streams[1].fd >= 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0 || poll(streams.data(), streams.size(), int(left.count())) == 0) {
      return false;
    }
    for (std::size_t i = 0; i < streams.size(); ++i) {
      if (streams[i].fd < 0 || streams[i].revents == 0) {
        continue;
      }
      std::array<char, 4096> buffer;
      const ssize_t bytes = read(streams[i].fd, buffer.data(), buffer.size());
      if (bytes <= 0) {
        streams[i].fd = -1;
      } else {
        texts[i]->append(buffer.data(), static_cast<std::size_t>(bytes));
      }
    }
  }
  return true;
}

}  // namespace

RunResult RunKelmor(const std::string& directory, const Arguments& arguments,
                    std::uint64_t largestFile) {
  return RunProgram(KELMOR_PROGRAM, directory, arguments, largestFile);
}

RunResult RunProgram(const std::string& program, const std::string& directory,
                     const Arguments& arguments, std::uint64_t largestFile) {
  const std::string errorFile = directory + "/Errors000.txt";
  std::filesystem::remove(errorFile);
  Arguments words = {program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);

  RunResult result;
  Pipe output;
  Pipe errors;
  // A fork, since the peak of a process that was spawned begins with the peak of its parent; that
  // of a forked one begins with what its parent has at the moment.
  const pid_t pid = fork();
  if (pid == 0) {
    BecomeProgram(directory, argv.data(), output, errors, largestFile);
  }
  EXPECT_GT(pid, 0);
  output.CloseWriteEnd();
  errors.CloseWriteEnd();
  if (!Collect(output, errors, result)) {
    ADD_FAILURE() << "The run took more than " << sLongestRun.count() << " seconds";
    kill(pid, SIGKILL);
  }
  int status = 0;
  rusage usage{};
  EXPECT_EQ(wait4(pid, &status, 0, &usage), pid);
  result.mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.mSignal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  result.mReports = PlainH5::Bytes(errorFile);
#ifndef __SANITIZE_ADDRESS__
  result.mPeakBytes = static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
#endif
  return result;
}
