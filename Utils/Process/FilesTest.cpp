#include "Utils/Process/Files.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

TEST(FilesTest, EveryKindOfPathAndEveryChange) {
  const fs::path folder = testing::TempDir() + "vexa-files-" + std::to_string(getpid());
  const fs::path file = folder / "file";
  fs::create_directories(folder / "sub");
  std::ofstream(file) << "text";
  std::ofstream(folder / "empty");
  fs::create_symlink("file", folder / "link");
  fs::create_symlink("nowhere", folder / "dangling");
  mkfifo((folder / "fifo").c_str(), 0600);
  std::string kinds;
  for (const char* name : {"file", "link", "empty", "sub", "fifo", "dangling", "file/below"}) {
    const std::string path = folder / name;
    kinds.append(FileExists(path) ? " exists" : " -")
        .append(DirectoryExists(path) ? ":folder" : "");
    kinds.append(Vexa::IsRegularFile(path) ? ":file" : "")
        .append(Vexa::IsEmptyFile(path) ? ":empty" : "");
  }
  EXPECT_EQ(kinds, " exists:file exists:file exists:file:empty exists:folder exists - -");
  EXPECT_EQ(Vexa::IdentityOf(folder / "link"), Vexa::IdentityOf(file));
  EXPECT_NE(Vexa::IdentityOf(folder / "sub"), Vexa::IdentityOf(file));
  EXPECT_EQ(Vexa::FlushToDisk(file) + Vexa::FlushToDisk(folder), 0);
  EXPECT_EQ(Vexa::FlushToDisk(folder / "none"), ENOENT);
  EXPECT_EQ(Vexa::FlushToDisk("/dev/null"), EINVAL) << "only a directory is excused";

  const std::string stamp = Vexa::FileStamp(folder / "link");
  const auto time = fs::last_write_time(file);
  fs::last_write_time(file, time + std::chrono::nanoseconds(1));
  EXPECT_NE(Vexa::FileStamp(file), stamp);
  std::ofstream(file, std::ios::app) << "+";
  fs::last_write_time(file, time);
  EXPECT_NE(Vexa::FileStamp(file), stamp);

  const int descriptor = open(file.c_str(), O_RDONLY);
  const Vexa::FileDescriptor held(descriptor);
  close(descriptor);
  EXPECT_EQ(held.Stamp(), Vexa::FileStamp(file));
  EXPECT_TRUE(held.HasName(file) && !held.HasName(folder / "link"));
  fs::remove_all(folder);
  EXPECT_FALSE(held.HasName(file));
  std::string bytes(held.Bytes() - 1, ' ');
  EXPECT_TRUE(held.Read(1, bytes.data(), 4));
  EXPECT_EQ(bytes, "ext+");
  EXPECT_FALSE(held.Read(2, bytes.data(), 4)) << "there are fewer";
  EXPECT_EQ(Vexa::FileDescriptor(-1).FlushToDisk(), EBADF);
}

TEST(FilesTest, NoFileBecomesStandardErrorAndManyMayBeOpen) {
  const auto run = [] {
    rlimit limit{64, 128};
    setrlimit(RLIMIT_NOFILE, &limit);
    Vexa::RaiseOpenFileLimit();
    getrlimit(RLIMIT_NOFILE, &limit);
    close(STDIN_FILENO);
    close(STDERR_FILENO);
    Vexa::TakeStandardDescriptors();
    const bool fails = write(STDERR_FILENO, "x", 1) < 0;
    std::exit(fails && open("/dev/null", O_RDWR) > STDERR_FILENO && limit.rlim_cur == 128 ? 0 : 1);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

}  // namespace
