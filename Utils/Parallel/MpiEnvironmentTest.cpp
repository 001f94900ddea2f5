#include <gmock/gmock.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;

struct Ended {
  int mExitCode;
  std::string mText;   // standard output and error
  std::string mFiles;  // names and texts of the files that the job left
};

Ended RunJob(const std::string& arguments) {
  const fs::path folder = testing::TempDir() + "vexa-mpi-" + std::to_string(getpid());
  fs::create_directory(folder);
  // More processes than cores, and a test machine that has root only, are fine here.
  setenv("OMPI_ALLOW_RUN_AS_ROOT", "1", 1);
  setenv("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1", 1);
  setenv("OMPI_MCA_rmaps_base_oversubscribe", "1", 1);
  // Nor has MPI to say what it misses of the machine's network and description.
  setenv("OMPI_MCA_btl", "^tcp", 1);
  setenv("HWLOC_HIDE_ERRORS", "2", 1);
  // What MPI itself never frees is no fault of ours.
  setenv("LSAN_OPTIONS", "detect_leaks=0", 1);
  const std::string command =
      "cd '" + folder.string() + "' && timeout 60 '" VEXA_MPIEXEC "' " + arguments + " 2>&1";
  Ended ended{};
  FILE* pipe = popen(command.c_str(), "r");
  std::array<char, 4096> text;
  while (const std::size_t length = std::fread(text.data(), 1, text.size(), pipe)) {
    ended.mText.append(text.data(), length);
  }
  ended.mExitCode = WEXITSTATUS(pclose(pipe));
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    std::ostringstream content;
    content << std::ifstream(entry.path()).rdbuf();
    files[entry.path().filename()] = content.str();
  }
  for (const auto& [name, content] : files) {
    ended.mFiles += name + ":" + content;
  }
  fs::remove_all(folder);
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
      {"-np 2 ", "fatal", 255, "Errors001.txt:giving up\nflushed0:;flushed1:;"},
      {"-np 2 ", "mpi", 255, "Errors001.txt:MPI failed: [^\n]*\nflushed0:;flushed1:;"},
      {"-np 2 ", "hold", 255,
       "Errors001.txt:giving up\n[^\n]*\n  did not answer: rank 0\n[^\n]*\nflushed0:;flushed1:;"},
      {hosts + "-np 6 ", "wait", 255,
       "Errors005.txt:giving up\n[^\n]*\n  did not answer: ranks 2, 4\n"
       "  not reached, on other hosts: ranks 0-1\n[^\n]*\nflushed3:;flushed5:;"}};
  for (const auto& c : cases) {
    const Ended ended = RunJob(c.mOptions + "'" VEXA_TEST_JOB "' " + c.mWhat);
    EXPECT_EQ(ended.mExitCode, c.mExitCode) << ended.mText;
    EXPECT_EQ(ended.mText.empty(), c.mExitCode == 0) << ended.mText;
    EXPECT_THAT(ended.mFiles, testing::MatchesRegex(c.mFiles)) << c.mWhat;
  }
  fs::remove(shell);
}

}  // namespace
