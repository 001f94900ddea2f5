#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

struct Ended {
  int mExitCode;
  std::string mFiles;  // names and texts of the files that the job left, its output among them
};

Ended RunJob(const std::string& arguments) {
  // More processes than cores, and a test machine that has root only, are fine here.
  setenv("OMPI_ALLOW_RUN_AS_ROOT", "1", 1);
  setenv("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1", 1);
  setenv("OMPI_MCA_rmaps_base_oversubscribe", "1", 1);
  // Nor has MPI to say what it misses of the machine's network and description.
  setenv("OMPI_MCA_btl", "^tcp", 1);
  setenv("HWLOC_HIDE_ERRORS", "2", 1);
  // What MPI itself never frees is no fault of ours.
  setenv("LSAN_OPTIONS", "detect_leaks=0", 1);
  const std::string command = "cd $(mktemp -d) && timeout 60 '" VEXA_MPIEXEC "' " + arguments +
                              " >output 2>&1; status=$?; for file in *; do printf %s: $file; "
                              "cat $file; done; rm -r $PWD; exit $status";
  Ended ended{};
  FILE* pipe = popen(command.c_str(), "r");
  for (int c = 0; (c = std::fgetc(pipe)) != EOF;) {
    ended.mFiles += static_cast<char>(c);
  }
  ended.mExitCode = WEXITSTATUS(pclose(pipe));
  return ended;
}

TEST(MpiEnvironmentTest, AllWriteWhoCanAndTheOthersAreNamed) {
  // Both hosts are this one, reached by a remote shell that stays here.
  const std::string shell = testing::TempDir() + "vexa-rsh-" + std::to_string(getpid());
  std::ofstream(shell) << "#!/bin/sh\nshift\nexec sh -c \"$*\"\n";
  fs::permissions(shell, fs::perms::owner_all);
  const std::string hosts =
      "--mca btl tcp,self --mca plm rsh --mca plm_rsh_agent " + shell + " -H one:2,two:9 ";
  struct {
    std::string mOptions;
    const char* mWhat;
    int mExitCode;
    const char* mFiles;
  } const cases[] = {
      {"-np 2 ", "normal", 0, "flushed0:;flushed1:;"},
      {"-np 2 ", "own", 255, "Errors000.txt:.*MPI has been finalised.*flushed0:;flushed1:;"},
      {"-np 4 ", "abort", 255, "Errors003.txt:giving up\nflushed0:;flushed1:;flushed2:;flushed3:;"},
      {"-np 2 ", "mpi", 255, "Errors001.txt:MPI failed: [^\n]*\nflushed0:;flushed1:;"},
      {"-np 2 ", "hold", 255,
       "Errors001.txt:giving up\n[^\n]*\n  did not answer: rank 0\n[^\n]*\nflushed0:;flushed1:;"},
      {hosts + "-np 6 ", "wait", 255,
       "Errors005.txt:giving up\n[^\n]*\n  did not answer: ranks 2, 4\n"
       "  not reached, on other hosts: ranks 0-1\n[^\n]*\nflushed3:;flushed5:;"}};
  for (const auto& c : cases) {
    const Ended ended = RunJob(c.mOptions + "'" VEXA_TEST_JOB "' " + c.mWhat);
    EXPECT_EQ(ended.mExitCode, c.mExitCode) << c.mWhat;
    const std::string output = c.mExitCode == 0 ? "output:" : "output:.+";
    EXPECT_THAT(ended.mFiles, testing::MatchesRegex(c.mFiles + output)) << c.mWhat;
  }
  fs::remove(shell);
}

}  // namespace
