#include "Executables/Kelmor/Tests/KelmorFixture.hpp"

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>

#include "Utils/Process/Formatting.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"

namespace fs = std::filesystem;
using PlainH5::File;
using PlainH5::Rows;

KelmorFixture::KelmorFixture() {
  TheCachedH5FileHolder();
}

File& KelmorFixture::Input(const std::string& name) {
  const auto found = mInputs.find(name);
  return found != mInputs.end() ? found->second
                                : mInputs.emplace(name, File::Create(Path(name))).first->second;
}

RunResult KelmorFixture::Run(const Arguments& arguments, const std::string& program) {
  CloseInputs();
  fs::remove(Path("Errors000.txt"));
  const std::string errors = mDir.Path().string() + ".errors";
  std::string line = "exec timeout 120 " + Quoted(program.empty() ? KELMOR_PROGRAM : program);
  for (const std::string& argument : arguments) {
    line += " " + Quoted(argument);
  }
  line = "cd " + mDir.Path().string() + " && VEXA_NO_BACKTRACE=1 " + line;
  FILE* const pipe = popen((line + " </dev/null 2>" + errors).c_str(), "r");
  RunResult result;
  for (int c = 0; (c = std::fgetc(pipe)) != EOF;) {
    result.mOutput += static_cast<char>(c);
  }
  result.mStatus = WEXITSTATUS(pclose(pipe));
  result.mErrors = PlainH5::Bytes(errors);
  result.mReports = PlainH5::Bytes(Path("Errors000.txt"));
  fs::remove(errors);
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
  file.Table(path + "/index.dat", index, {.mLegend = Strings(index[0].size(), "t")});
  file.Table(path + "/data.dat", values, {.mLegend = {"shift"}});
  file.StringAttribute(path, "TensorSpec", {spec});
}
