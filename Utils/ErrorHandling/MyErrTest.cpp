#include "Utils/ErrorHandling/MyErr.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>

#include "Utils/ErrorHandling/TestOutput.hpp"
#include "Utils/Process/RunInformation.hpp"

namespace {

class MyErrTest : public testing::Test {
 protected:
  MyErrTest() { std::cerr.rdbuf(mStandardError.rdbuf()); }
  ~MyErrTest() override {
    std::cerr.rdbuf(mpBuffer);
    for (const char* name : {"996", "997"}) {
      std::filesystem::remove(ErrorFile(name));
    }
  }

  // Ranks that no other test uses: tests run at the same time in one directory.
  static std::string ErrorFile(const std::string& rank) {
    return RunDirectory() + "/Errors" + rank + ".txt";
  }
  static std::string Contents(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }

  std::ostringstream mStandardError;
  std::streambuf* mpBuffer = std::cerr.rdbuf();
};

TEST_F(MyErrTest, EveryStatementGoesToBothSinksAndIsAppended) {
  const FakeRuntime runtime(997);
  MyErr << "one " << 1 << std::endl << "two\n";
  MyErr << "three\n";
  EXPECT_EQ(mStandardError.str(), "[997]one 1\ntwo\n[997]three\n");
  EXPECT_EQ(Contents(ErrorFile("997")), "one 1\ntwo\nthree\n");
}

TEST_F(MyErrTest, SingleProcessHasNoPrefix) {
  const std::string unique = "only process " + std::to_string(getpid());
  MyErr << unique << "\n";
  EXPECT_EQ(mStandardError.str(), unique + "\n");
  EXPECT_NE(Contents(ErrorFile("000")).find(unique), std::string::npos);
}

TEST_F(MyErrTest, StandardErrorGetsItWhenTheFileCannotTakeIt) {
  std::filesystem::create_directory(ErrorFile("996"));
  const FakeRuntime runtime(996);
  MyErr << "a "
        << "b";
  EXPECT_EQ(mStandardError.str(), "[996]a b");
  std::filesystem::remove(ErrorFile("996"));
  const std::string data("data\n\0of a user", 15);
  std::ofstream(ErrorFile("996")) << data;
  MyErr << "c";
  EXPECT_EQ(mStandardError.str(), "[996]a b[996]c");
  EXPECT_EQ(Contents(ErrorFile("996")), data);
}

}  // namespace
