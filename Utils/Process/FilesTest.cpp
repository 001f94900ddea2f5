#include "Utils/Process/Files.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

TEST(FilesTest, EveryKindOfPath) {
  const fs::path folder = fs::temp_directory_path() / ("vexa-files-" + std::to_string(getpid()));
  fs::create_directories(folder / "sub");
  std::ofstream(folder / "file") << "text";
  fs::create_symlink("file", folder / "link");
  fs::create_symlink("nowhere", folder / "dangling");
  mkfifo((folder / "fifo").c_str(), 0600);
  const struct {
    const char* mName;
    bool mExists;
    bool mIsDirectory;
    bool mIsRegular;
  } cases[] = {{"file", true, false, true},       {"link", true, false, true},
               {"sub", true, true, false},        {"fifo", true, false, false},
               {"dangling", false, false, false}, {"file/below", false, false, false}};
  for (const auto& c : cases) {
    const std::string path = folder / c.mName;
    EXPECT_EQ(FileExists(path), c.mExists) << c.mName;
    EXPECT_EQ(DirectoryExists(path), c.mIsDirectory) << c.mName;
    EXPECT_EQ(IsRegularFile(path), c.mIsRegular) << c.mName;
  }
  EXPECT_EQ(fs::file_size(folder / "file"), 4u);
  EXPECT_EQ(FileStamp(folder / "none"), "");
  EXPECT_EQ(FileStamp(folder / "link"), FileStamp(folder / "file"));
  EXPECT_NE(FileStamp(folder / "sub"), FileStamp(folder / "file"));

  const int descriptor = open((folder / "file").c_str(), O_RDONLY);
  const HeldFile held(descriptor);
  close(descriptor);
  EXPECT_TRUE(held.HasName(folder / "file"));
  EXPECT_FALSE(held.HasName(folder / "link"));
  std::ofstream(folder / "other") << "text";
  fs::rename(folder / "other", folder / "file");
  EXPECT_FALSE(held.HasName(folder / "file"));
  EXPECT_EQ(held.Bytes(), 4u);

  EXPECT_EQ(FlushToDisk(folder / "file"), 0);
  EXPECT_EQ(FlushToDisk(folder), 0);
  EXPECT_EQ(FlushToDisk(folder / "none"), ENOENT);
  EXPECT_EQ(FlushToDisk("/dev/null"), EINVAL) << "only a directory is excused";
  fs::remove_all(folder);
}

TEST(FilesTest, NoFileBecomesStandardError) {
  const auto run = [] {
    close(STDIN_FILENO);
    close(STDERR_FILENO);
    TakeStandardDescriptors();
    const bool fails = write(STDERR_FILENO, "x", 1) < 0;
    std::exit(fails && open("/dev/null", O_RDWR) > STDERR_FILENO ? 0 : 1);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

}  // namespace
