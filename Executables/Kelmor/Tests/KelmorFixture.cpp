#include "Executables/Kelmor/Tests/KelmorFixture.hpp"

#include <filesystem>
#include <map>
#include <numeric>
#include <tuple>

#include "Utils/HDF5/Handle.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"

namespace fs = std::filesystem;
using PlainH5::File;
using PlainH5::Rows;

namespace {

using Snapshot = std::map<std::string, std::tuple<fs::file_time_type, std::string>>;

Snapshot SnapshotOf(const fs::path& directory) {
  Snapshot snapshot;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
    if (entry.is_regular_file() && entry.path().filename() != "Errors000.txt") {
      snapshot[entry.path()] = {entry.last_write_time(), PlainH5::Bytes(entry.path())};
    }
  }
  return snapshot;
}

}  // namespace

KelmorFixture::KelmorFixture() {
  TheCachedH5FileHolder();
}

File& KelmorFixture::Input(const std::string& name) {
  const auto found = mInputs.find(name);
  return found != mInputs.end() ? found->second
                                : mInputs.emplace(name, File::Create(Path(name))).first->second;
}

RunResult KelmorFixture::Run(const Arguments& arguments) {
  return Run(KELMOR_PROGRAM, arguments);
}

RunResult KelmorFixture::Run(const std::string& program, const Arguments& arguments) {
  CloseInputs();
  const Snapshot before = SnapshotOf(mDir.Path());
  RunResult result = RunProgram(program, mDir.Path(), arguments);
  const Snapshot after = SnapshotOf(mDir.Path());
  for (const auto& [path, state] : before) {
    // No EXPECT_EQ, which would print the files.
    EXPECT_TRUE(after.contains(path) && after.at(path) == state) << path << " was touched";
  }
  return result;
}

std::string KelmorFixture::Join(Arguments arguments) {
  fs::remove(Path("out.h5"));
  arguments.insert(arguments.begin(), {"-o", "out.h5"});
  const RunResult result = Run(arguments);
  EXPECT_EQ(result.mStatus, 0);
  EXPECT_EQ(result.mErrors, "");
  return result.mOutput;
}

void WriteTimes(File& file, const std::string& path, const std::vector<double>& times, int tag) {
  Rows rows;
  for (const double time : times) {
    rows.push_back({time, 100.0 * tag + static_cast<double>(rows.size())});
  }
  file.Table(path, rows, {.mLegend = {"time", "value"}}, 2);
}

void WriteNumbers(File& file, const std::string& path, hsize_t rows,
                  const std::vector<hsize_t>& chunk, hsize_t columns, double first) {
  file.Table(path, {}, {.mChunk = chunk}, columns);
  std::vector<double> numbers(rows * columns);
  std::iota(numbers.begin(), numbers.end(), first);
  const hsize_t dims[2] = {rows, columns};
  const Vexa_H5::DatasetHandle dataset(H5Dopen2(file.Id(), path.c_str(), H5P_DEFAULT));
  EXPECT_GE(H5Dset_extent(dataset, dims), 0);
  EXPECT_GE(H5Dwrite(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, numbers.data()), 0);
}

Rows Count(double first, std::size_t values) {
  Rows rows;
  for (std::size_t i = 0; i < values; ++i) {
    rows.push_back({first + static_cast<double>(i)});
  }
  return rows;
}

void WriteCoef(File& file, const std::string& path, const Rows& index, const Rows& values) {
  file.Table(path + "/index.dat", index, {.mLegend = {"t", "index one past current coeff-data"}});
  file.Table(path + "/coefs.dat", values, {.mLegend = {"power"}});
}

void WriteTdm(File& file, const std::string& path, const Rows& index, const Rows& values,
              const std::string& spec) {
  const hsize_t columns = index[0].size();
  Strings legend = {"t", "index one past this filestep"};
  for (hsize_t i = 0; i + 2 < columns; ++i) {
    legend.push_back("Extents[" + std::to_string(i) + "]");
  }
  file.Table(path + "/index.dat", index, {.mLegend = legend});
  file.Table(path + "/data.dat", values, {.mLegend = {"shift"}});
  file.StringAttribute(path, "TensorSpec", {spec});
}
