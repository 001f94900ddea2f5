#include "Utils/Process/RunInformation.hpp"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(RunInformationTest, RunDirectoryIsThatOfTheStart) {
  const std::string atStart = std::filesystem::current_path();
  ASSERT_NE(atStart, "/");
  ASSERT_EQ(chdir("/"), 0);  // before the first use in here
  EXPECT_EQ(RunDirectory(), atStart);
  ASSERT_EQ(chdir(atStart.c_str()), 0);
}

TEST(RunInformationTest, BuildNamesNeitherMachineNorPath) {
  const std::string info = InfoAtCompile();
  EXPECT_THAT(info, StartsWith("Compiled at "));
  EXPECT_THAT(info, HasSubstr("\nError checking "));
  EXPECT_THAT(info, Not(HasSubstr("/")));
  char host[256] = "";
  gethostname(host, sizeof host - 1);
  EXPECT_THAT(info, Not(StartsWith("Compiled at " + std::string(host) + ":")));
}

}  // namespace
