#include <gmock/gmock.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "Executables/Kelmor/Tests/KelmorFixture.hpp"

namespace {

namespace fs = std::filesystem;
using PlainH5::File;
using PlainH5::Rows;
using testing::HasSubstr;

// Inputs whose output has data of every kind, those that go out at once and those that wait in
// memory until the end.
class DiskFullTest : public KelmorFixture {
 protected:
  DiskFullTest() {
    for (int i = 0; i < 2; ++i) {
      File& file = Input(std::to_string(i) + ".h5");
      file.Table("/Run.dir/x.dat", mRows);
      WriteCoef(file, "/c.coef", {{0. + i, 3000}}, Count(3000. * i, 3000));
      WriteTdm(file, "/t.tdm", {{0. + i, 3000, 1000}}, Count(3000. * i, 3000));
      file.Strings("/log.txt", {std::string(20000, 'x')}, {1});
      file.Version("/v.ver", 200);
    }
    CloseInputs();
    // Where a close fails, the library leaks; a leak check would change the exit status.
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
  }
  ~DiskFullTest() override { unsetenv("ASAN_OPTIONS"); }

  RunResult Join(const std::string& output, std::uint64_t largestFile = ~std::uint64_t{0}) {
    return RunKelmor(mDir.Path(), {"-o", output, "-NoGzip", "0.h5", "1.h5"}, largestFile);
  }

  static void ExpectReport(const RunResult& result) {
    EXPECT_EQ(result.mStatus, 255) << result.mErrors;
    EXPECT_EQ(result.mSignal, 0);
    EXPECT_THAT(result.mErrors, HasSubstr("REQUIRE  FAILED"));
  }
  void ExpectComplete(const std::string& output) const {
    const File file = File::Open(Path(output));
    EXPECT_TRUE(file.ReadTable("/Run.dir/x.dat") == mRows);
    const Rows joined = Count(0, 6000);
    EXPECT_TRUE(file.ReadTable("/c.coef/coefs.dat") == joined);
    EXPECT_TRUE(file.ReadTable("/t.tdm/data.dat") == joined);
    EXPECT_EQ(file.ReadStrings("/log.txt"), Strings{std::string(40000, 'x')});
    EXPECT_EQ(file.Dims("/v.ver")[0], 200u);
  }

  const Rows mRows = Count(0, 5000);
};

TEST_F(DiskFullTest, AFileSizeLimitEndsInAReport) {
  ASSERT_EQ(Join("whole.h5").mStatus, 0);
  ExpectComplete("whole.h5");
  const std::uint64_t size = fs::file_size(Path("whole.h5"));
  for (const std::uint64_t limit :
       {std::uint64_t{0}, std::uint64_t{100}, std::uint64_t{2000}, size / 8, size / 4, size / 2,
        size * 3 / 4, size * 7 / 8, size - 1000, size - 1}) {
    SCOPED_TRACE(std::to_string(limit) + " of " + std::to_string(size));
    fs::remove(Path("out.h5"));
    ExpectReport(Join("out.h5", limit));
  }
  fs::remove(Path("out.h5"));
  EXPECT_EQ(Join("out.h5", 2 * size).mStatus, 0);
  ExpectComplete("out.h5");
}

// A small file system of its own.
class SmallDisk {
 public:
  SmallDisk(const std::string& path, std::uint64_t bytes) : mPath(path) {
    fs::create_directories(path);
    const std::string options = "size=" + std::to_string(bytes);
    mIsMounted = mount("tmpfs", path.c_str(), "tmpfs", 0, options.c_str()) == 0;
  }
  ~SmallDisk() {
    if (mIsMounted) {
      EXPECT_EQ(umount(mPath.c_str()), 0);
    }
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;
  bool IsMounted() const { return mIsMounted; }

 private:
  std::string mPath;
  bool mIsMounted;
};

TEST_F(DiskFullTest, AFullDiskEndsInAReport) {
  ASSERT_EQ(Join("whole.h5").mStatus, 0);
  const std::uint64_t size = fs::file_size(Path("whole.h5"));
  for (const std::uint64_t bytes : {std::uint64_t{4096}, size / 8, size / 2, size * 15 / 16}) {
    SCOPED_TRACE(std::to_string(bytes) + " of " + std::to_string(size));
    const SmallDisk disk(Path("disk"), bytes);
    if (!disk.IsMounted()) {
      GTEST_SKIP() << "Mounting a file system is not permitted";
    }
    ExpectReport(Join("disk/out.h5"));
  }
  const SmallDisk disk(Path("disk"), 4 * size);
  EXPECT_EQ(Join("disk/out.h5").mStatus, 0);
  ExpectComplete("disk/out.h5");
}

}  // namespace
