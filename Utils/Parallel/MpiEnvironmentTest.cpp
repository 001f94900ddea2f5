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

class MpiEnvironmentTest : public testing::Test {
 protected:
  MpiEnvironmentTest() {
    std::filesystem::create_directory(mDirectory);
    // More processes than cores, and a test machine that has root only, are fine here.
    setenv("OMPI_ALLOW_RUN_AS_ROOT", "1", 1);
    setenv("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1", 1);
    setenv("OMPI_MCA_rmaps_base_oversubscribe", "1", 1);
    // What MPI itself never frees is no fault of ours.
    setenv("LSAN_OPTIONS", "detect_leaks=0", 1);
  }
  ~MpiEnvironmentTest() override { std::filesystem::remove_all(mDirectory); }

  Ended RunJob(const std::string& arguments) const {
    const std::string command = "cd '" + mDirectory +
                                "' && timeout 60 '" VEXA_MPIEXEC "' -np 2 '" VEXA_TEST_JOB "' " +
                                arguments + " 2>&1";
    Ended ended{};
    FILE* pipe = popen(command.c_str(), "r");
    std::array<char, 4096> text;
    while (const std::size_t length = std::fread(text.data(), 1, text.size(), pipe)) {
      ended.mText.append(text.data(), length);
    }
    ended.mExitCode = WEXITSTATUS(pclose(pipe));
    return ended;
  }

  const std::string mDirectory = testing::TempDir() + "vexa-mpi-" + std::to_string(getpid());
};

TEST_F(MpiEnvironmentTest, AbortOfOneProcessHasAllWriteAndEndsTheJob) {
  const Ended ended = RunJob("abort");
  EXPECT_EQ(ended.mExitCode, 255) << ended.mText;
  // What the processes print arrives in any order, the prefix of a report apart from its text.
  EXPECT_THAT(ended.mText, HasSubstr("[1]"));
  EXPECT_THAT(ended.mText, HasSubstr("giving up\n"));
  EXPECT_THAT(ended.mText, HasSubstr("flushed by rank 0\n"));
  EXPECT_THAT(ended.mText, HasSubstr("flushed by rank 1\n"));
  std::ifstream errors(mDirectory + "/Errors001.txt");
  std::string line;
  std::getline(errors, line);
  EXPECT_EQ(line, "giving up");
}

TEST_F(MpiEnvironmentTest, FailureOfMpiIsReported) {
  const Ended ended = RunJob("mpi");
  EXPECT_EQ(ended.mExitCode, 255) << ended.mText;
  EXPECT_THAT(ended.mText, HasSubstr("[1]"));
  EXPECT_THAT(ended.mText, HasSubstr("MPI failed: "));
  EXPECT_THAT(ended.mText, HasSubstr("flushed by rank 0\n"));
}

TEST_F(MpiEnvironmentTest, NormalEndFinalises) {
  const Ended ended = RunJob("normal");
  EXPECT_EQ(ended.mExitCode, 0) << ended.mText;
  EXPECT_EQ(ended.mText, "");
}

}  // namespace
