#include <malloc.h>

#include <filesystem>

#include "Executables/Kelmor/Tests/KelmorFixture.hpp"

namespace {

using PlainH5::File;

// Largest resident sets, in MiB.
class MemoryTest : public KelmorFixture {
 protected:
  void SetUp() override {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "A sanitizer's memory would be measured";
#endif
    WriteTimes(Input("small.h5"), "/x.dat", {0, 1, 2});
    setenv("VEXA_THREADS", "2", 1);  // each takes some
  }
  void TearDown() override {
    unsetenv("VEXA_THREADS");
  }

  // Of a join that must succeed.
  double Peak(Arguments arguments) {
    CloseInputs();
    std::filesystem::remove(Path("out.h5"));
    arguments.insert(arguments.begin(), {"-o", "out.h5"});
    // What this process has counts as the tool's, so it must be little.
    H5garbage_collect();
    malloc_trim(0);
    const RunResult result = RunProgram(KELMOR_PROGRAM, mDir.Path(), arguments);
    EXPECT_EQ(result.mStatus, 0) << result.mErrors;
    return static_cast<double>(result.mPeakBytes) / (1024 * 1024);
  }
  // What the tool takes for next to no data.
  double LeastPeak() {
    return Peak({"small.h5"});
  }
};

TEST_F(MemoryTest, TablesBeyondTheLimitAreReadByColumns) {
  // 48 MiB of every table in two files: a column of it takes 1 MiB.
  for (const char* table : {"/x.dat", "/y.dat", "/z.dat"}) {
    for (const char* file : {"0.h5", "1.h5"}) {
      WriteNumbers(Input(file), table, 65536, {131072, 1}, 24);
    }
  }
  // Blocks of values, and what they are encoded to, on their way to the file.
  const double blocks = 28;
  const double most = LeastPeak() + blocks;
  for (const char* gzip : {"-NoGzip", "-no-NoGzip"}) {
    EXPECT_LT(Peak({gzip, "-NoWipe", "-cachesize", "1e6", "0.h5", "1.h5"}), most) << gzip;
  }
}

TEST_F(MemoryTest, TensorsDoNotAddUpOverFiles) {
  Arguments names;
  for (int i = 0; i < 6; ++i) {
    names.push_back(std::to_string(i) + ".h5");
    File& file = Input(names.back());
    const double values = 2e6;  // 15 MiB
    file.Table("/t.tdm/index.dat", {{0, values / 2, values / 2}, {1, values, values / 2}});
    WriteNumbers(file, "/t.tdm/data.dat", static_cast<hsize_t>(values), {131072, 1}, 1);
    file.StringAttribute("/t.tdm", "TensorSpec", {"TensorDim=3; TensorSymm=; DataMeshDim=1;"});
  }
  const auto peak = [&](int files) {
    Arguments arguments = {"-NoWipe", "-cachesize", "1e6"};
    arguments.insert(arguments.end(), names.begin(), names.begin() + files);
    return Peak(arguments);
  };
  const double ofTwo = peak(2);
  EXPECT_LT(ofTwo, LeastPeak() + 64);
  EXPECT_LT(peak(6), ofTwo + 24);
}

}  // namespace
