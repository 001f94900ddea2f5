#include "Utils/HDF5/OutputDriver.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "Utils/HDF5/FileLock.hpp"
#include "Utils/HDF5/TestSupport/PlainH5.hpp"

using namespace Vexa_H5;

namespace {

constexpr std::size_t sMega = 1024 * 1024;

// A file that was slow so far, so that a thread writes it from the first values on.
class OutputDriverTest : public testing::Test {
 protected:
  ~OutputDriverTest() override { H5FDclose(mFile.Below()); }

  static Vexa::WritePace Slow() {
    Vexa::WritePace pace;
    pace.Add(1, 1.0);
    return pace;
  }

  herr_t Write(haddr_t address, const std::string& bytes, H5FD_mem_t type = H5FD_MEM_DRAW) {
    return mFile.Write(type, H5P_DEFAULT, address, bytes.size(), bytes.data());
  }

  PlainH5::TempDir mFolder;
  OutputFile mFile{
      OpenPosixFile((mFolder / "f").c_str(), H5F_ACC_CREAT | H5F_ACC_RDWR, HADDR_UNDEF), Slow()};
};

TEST_F(OutputDriverTest, HasWhatTheLibraryWroteWhoeverWritesIt) {
  ASSERT_GE(Write(0, "super", H5FD_MEM_SUPER), 0);
  std::string expected = "super" + std::string(95, '\0');
  for (char c = 'a'; c < 'z'; ++c) {  // of which the thread is to write 16 MiB
    const std::string values(sMega, c);
    ASSERT_GE(Write(expected.size(), values), 0);
    expected += values + std::string(3000, '\0');
    ASSERT_GE(Write(expected.size() - 2000, "node", H5FD_MEM_OHDR), 0);
    expected.replace(expected.size() - 2000, 4, "node");
    EXPECT_EQ(mFile.End(H5FD_MEM_DEFAULT), expected.size() - 1996);
    if (c == 'e') {
      std::string found(expected.size(), '?');
      EXPECT_GE(mFile.Read(H5FD_MEM_DRAW, H5P_DEFAULT, 0, found.size(), found.data()), 0);
      EXPECT_TRUE(found == expected);
    }
  }
  mFile.Below()->cls->set_eoa(mFile.Below(), H5FD_MEM_DEFAULT, expected.size());
  EXPECT_GE(mFile.Truncate(H5P_DEFAULT, true), 0);
  EXPECT_EQ(mFile.End(H5FD_MEM_DEFAULT), expected.size());
  EXPECT_TRUE(PlainH5::Bytes(mFolder / "f") == expected);
}

TEST_F(OutputDriverTest, TellsAFailureAtValuesFlushAndCloseButNotAtMetadata) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small{sMega, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  ASSERT_GE(Write(0, "v"), 0);
  for (std::size_t i = 0; i < 9; ++i) {
    EXPECT_GE(Write(i * sMega, std::string(sMega, 'm'), H5FD_MEM_OHDR), 0);
  }
  EXPECT_LT(mFile.Flush(H5P_DEFAULT, false), 0);
  EXPECT_EQ(SystemErrorOf("file write failed"), EFBIG);
  setrlimit(RLIMIT_FSIZE, &before);  // which is too late
  EXPECT_LT(Write(20 * sMega, "v"), 0);
  EXPECT_GE(Write(21 * sMega, "m", H5FD_MEM_OHDR), 0);
  EXPECT_LT(mFile.Truncate(H5P_DEFAULT, true), 0);
  EXPECT_LT(mFile.Finish(), 0);
}

}  // namespace
