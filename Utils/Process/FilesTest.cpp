#include "Utils/Process/Files.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

class FilesTest : public testing::Test {
 protected:
  FilesTest() {
    fs::create_directories(mDirectory / "sub");
    std::ofstream(mDirectory / "file") << "text";
    fs::create_symlink("file", mDirectory / "link");
    fs::create_symlink("sub", mDirectory / "dirlink");
    fs::create_symlink("nowhere", mDirectory / "dangling");
    mkfifo((mDirectory / "fifo").c_str(), 0600);
  }
  ~FilesTest() override { fs::remove_all(mDirectory); }

  fs::path mDirectory = fs::temp_directory_path() / ("vexa-files-" + std::to_string(getpid()));
};

TEST_F(FilesTest, KindsOfPaths) {
  const struct {
    const char* mName;
    bool mExists;
    bool mIsDirectory;
    bool mIsRegular;
  } cases[] = {{"file", true, false, true},      {"link", true, false, true},
               {"sub", true, true, false},       {"dirlink", true, true, false},
               {"fifo", true, false, false},     {"dangling", false, false, false},
               {"nowhere", false, false, false}, {"file/below", false, false, false}};
  for (const auto& c : cases) {
    const std::string path = mDirectory / c.mName;
    EXPECT_EQ(FileExists(path), c.mExists) << c.mName;
    EXPECT_EQ(DirectoryExists(path), c.mIsDirectory) << c.mName;
    EXPECT_EQ(IsRegularFile(path), c.mIsRegular) << c.mName;
  }
  EXPECT_FALSE(FileExists(""));
  EXPECT_EQ(FileStamp(mDirectory / "nowhere"), "");
  EXPECT_EQ(FileStamp(mDirectory / "link"), FileStamp(mDirectory / "file"));
  EXPECT_NE(FileStamp(mDirectory / "sub"), FileStamp(mDirectory / "file"));
}

TEST_F(FilesTest, FlushToDiskReturnsTheErrno) {
  EXPECT_EQ(FlushToDisk(mDirectory / "file"), 0);
  EXPECT_EQ(FlushToDisk(mDirectory), 0);
  EXPECT_EQ(FlushToDisk(mDirectory / "nowhere"), ENOENT);
  EXPECT_EQ(FlushToDisk("/dev/null"), EINVAL) << "only a directory is excused";
}

TEST_F(FilesTest, WhatExistsIsNotCreated) {
  EXPECT_EQ(CreateEmptyFile(mDirectory / "new"), 0);
  EXPECT_TRUE(fs::is_empty(mDirectory / "new"));
  for (const char* name : {"file", "link", "sub", "fifo", "dangling"}) {
    EXPECT_EQ(CreateEmptyFile(mDirectory / name), EEXIST) << name;
  }
  EXPECT_EQ(fs::file_size(mDirectory / "file"), 4u);
}

}  // namespace
