#include "Utils/Process/RunInformation.hpp"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

#include "Utils/Process/Version.hpp"

namespace {

TEST(RunInformationTest, CommandAndDirectoryAreThoseOfTheStart) {
  const std::string atStart = std::filesystem::current_path();
  ASSERT_NE(atStart, "/");
  ASSERT_EQ(chdir("/"), 0);  // before the first use in here
  std::string words[] = {"Kelmor", "a b"};
  char* argv[] = {words[0].data(), words[1].data()};
  EXPECT_THAT(InfoAtRuntime(2, argv),
              testing::StartsWith("Command line: Kelmor 'a b'\nRun directory: " + atStart +
                                  "\nProcess " + std::to_string(getpid()) + " on "));
  EXPECT_THAT(InfoAtRuntime(2, argv), testing::EndsWith("\nVersion " VEXA_VERSION "\n"));
  ASSERT_EQ(chdir(atStart.c_str()), 0);
}

}  // namespace
