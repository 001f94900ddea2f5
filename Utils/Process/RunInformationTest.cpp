#include "Utils/Process/RunInformation.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

namespace {

TEST(RunInformationTest, ArgumentsAreQuoted) {
  std::string words[] = {"Kelmor", "-skip", "a b"};
  char* argv[] = {words[0].data(), words[1].data(), words[2].data()};
  EXPECT_TRUE(InfoAtRuntime(3, argv).starts_with("Command line: Kelmor -skip 'a b'\n"));
}

TEST(RunInformationTest, RunDirectoryIsThatOfTheStart) {
  const std::string atStart = std::filesystem::current_path();
  ASSERT_NE(atStart, "/");
  ASSERT_EQ(chdir("/"), 0);  // before the first use in here
  EXPECT_EQ(RunDirectory(), atStart);
  ASSERT_EQ(chdir(atStart.c_str()), 0);
}

}  // namespace
