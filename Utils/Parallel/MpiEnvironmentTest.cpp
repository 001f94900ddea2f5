#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>

namespace {

namespace fs = std::filesystem;

// The exit status of the job, and names and texts of the files that it left, its output among them.
std::string RunJob(const std::string& options, const char* what) {
  // More processes than cores, and a test machine that has root only, are fine here.
  setenv("OMPI_ALLOW_RUN_AS_ROOT", "1", 1);
  setenv("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1", 1);
  setenv("OMPI_MCA_rmaps_base_oversubscribe", "1", 1);
  // Nor has MPI to say what it misses of the machine's network and description.
  setenv("OMPI_MCA_btl", "^tcp", 1);
  setenv("HWLOC_HIDE_ERRORS", "2", 1);
  // What MPI itself never frees is no fault of ours.
  setenv("LSAN_OPTIONS", "detect_leaks=0", 1);
  const std::string command = "cd $(mktemp -d) && timeout 60 '" VEXA_MPIEXEC "' " + options +
                              " '" VEXA_TEST_JOB "' " + what +
                              " >output 2>&1; echo $?; for file in *; do printf %s: $file; "
                              "cat $file; done; rm -r $PWD";
  std::string ended;
  FILE* pipe = popen(command.c_str(), "r");
  for (int c = 0; (c = std::fgetc(pipe)) != EOF;) {
    ended += static_cast<char>(c);
  }
  pclose(pipe);
  return ended;
}

TEST(MpiEnvironmentTest, AllWriteWhoCanAndTheOthersAreNamed) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"-np 2", "normal", "0\nflushed0:;flushed1:;output:"},
      {"-np 2", "own",
       "255\nErrors000.txt:.*MPI has been finalised.*flushed0:;flushed1:;output:.+"},
      {"-np 4", "abort",
       "255\nErrors003.txt:giving up\nflushed0:;flushed1:;flushed2:;flushed3:;output:.+"},
      {"-np 2", "mpi", "255\nErrors001.txt:MPI failed: .*\nflushed0:;flushed1:;output:.+"},
      {"-np 2", "hold",
       "255\nErrors001.txt:giving up\n[^\n]*\n  did not answer: rank 0\n"
       "[^\n]*\nflushed0:;flushed1:;output:.+"},
      {"-np 6", "wait",
       "255\nErrors005.txt:giving up\n[^\n]*\n  did not answer: ranks 0, 2, 4\n"
       "[^\n]*\nflushed1:;flushed3:;flushed5:;output:.+"}};
  // Later releases of Open MPI each have another name for the setting above, but not for an option.
  const bool isOpenMpi = RunJob("--version", "").find("Open MPI") != std::string::npos;
  const std::string host = isOpenMpi ? "--host localhost:6 --bind-to none " : "";
  for (const auto& [options, what, ended] : cases) {
    EXPECT_THAT(RunJob(host + options, what), testing::MatchesRegex(ended)) << what;
  }
}

TEST(MpiEnvironmentTest, WhoIsOnOtherHostsIsNotReached) {
  // Later releases, and others' MPI, see through it that both hosts are this one.
  if (RunJob("--version", "").find("(OpenRTE)") == std::string::npos) {
    GTEST_SKIP() << "only Open MPI 4 can be told of two hosts on one machine";
  }
  // Both hosts are reached by a remote shell that stays here.
  const std::string shell = testing::TempDir() + "vexa-rsh-" + std::to_string(getpid());
  std::ofstream(shell) << "#!/bin/sh\nshift\nexec sh -c \"$*\"\n";
  fs::permissions(shell, fs::perms::owner_all);
  EXPECT_THAT(RunJob("--mca btl tcp,self --mca plm rsh --mca plm_rsh_agent " + shell +
                         " -H one:2,two:9 -np 6",
                     "wait"),
              testing::MatchesRegex("255\nErrors005.txt:giving up\n[^\n]*\n"
                                    "  did not answer: ranks 2, 4\n"
                                    "  not reached, on other hosts: ranks 0-1\n"
                                    "[^\n]*\nflushed3:;flushed5:;output:.+"));
  fs::remove(shell);
}

}  // namespace
