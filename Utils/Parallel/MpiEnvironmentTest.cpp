#include <gmock/gmock.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

using testing::HasSubstr;

struct Ended {
  int mExitCode;
  std::string mText;  // standard output and error
};

Ended RunJob(const std::string& directory, const std::string& what) {
  std::filesystem::remove_all(directory);
  std::filesystem::create_directory(directory);
  // More processes than cores, and a test machine that has root only, are fine here.
  setenv("OMPI_ALLOW_RUN_AS_ROOT", "1", 1);
  setenv("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1", 1);
  setenv("OMPI_MCA_rmaps_base_oversubscribe", "1", 1);
  // Nor has MPI to say what it misses of the machine's network and description.
  setenv("OMPI_MCA_btl", "^tcp", 1);
  setenv("HWLOC_HIDE_ERRORS", "2", 1);
  // What MPI itself never frees is no fault of ours.
  setenv("LSAN_OPTIONS", "detect_leaks=0", 1);
  const std::string command = "cd '" + directory +
                              "' && timeout 60 '" VEXA_MPIEXEC "' -np 2 '" VEXA_TEST_JOB "' " +
                              what + " 2>&1";
  Ended ended{};
  FILE* pipe = popen(command.c_str(), "r");
  std::array<char, 4096> text;
  while (const std::size_t length = std::fread(text.data(), 1, text.size(), pipe)) {
    ended.mText.append(text.data(), length);
  }
  ended.mExitCode = WEXITSTATUS(pclose(pipe));
  return ended;
}

TEST(MpiEnvironmentTest, AbortOfOneProcessHasAllWriteAndEndsTheJob) {
  const std::string directory = testing::TempDir() + "vexa-mpi-" + std::to_string(getpid());
  const Ended normal = RunJob(directory, "normal");
  EXPECT_EQ(normal.mExitCode, 0);
  EXPECT_EQ(normal.mText, "");
  for (const auto& [what, message] :
       {std::pair("abort", "giving up\n"), std::pair("mpi", "MPI failed: ")}) {
    const Ended ended = RunJob(directory, what);
    EXPECT_EQ(ended.mExitCode, 255) << ended.mText;
    // What the processes print arrives in any order, the prefix of a report apart from its text.
    for (const char* part : {"[1]", message, "flushed by rank 0\n", "flushed by rank 1\n"}) {
      EXPECT_THAT(ended.mText, HasSubstr(part));
    }
    std::ifstream errors(directory + "/Errors001.txt");
    std::string line;
    std::getline(errors, line);
    EXPECT_THAT(line + "\n", testing::StartsWith(message));
  }
  std::filesystem::remove_all(directory);
}

}  // namespace
