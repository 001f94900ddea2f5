// Calls a fuzz target with every file of the folders and files that the arguments name, and fails
// if a file takes more than a second of processor time, or if there is none.
//
//   GlobFuzz Tests/Fuzz/corpus/Glob
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <vector>

#include "Tests/Fuzz/Fuzz.hpp"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> FilesOf(const fs::path& path) {
  if (!fs::is_directory(path)) {
    return {path};
  }
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(path)) {
    files.push_back(entry.path());
  }
  return files;
}

// Returns the seconds of processor time.
double Replay(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
  if (!stream) {
    throw fs::filesystem_error("cannot read", file, {});
  }
  // In an allocation of just that size, so that a read beyond the input is one beyond it.
  const auto input = std::make_unique<std::uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), input.get());
  const std::clock_t start = std::clock();
  LLVMFuzzerTestOneInput(input.get(), bytes.size());
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

}  // namespace

int main(int argc, char** argv) {
  int replayed = 0;
  int failed = 0;
  try {
    for (int i = 1; i < argc; ++i) {
      for (const fs::path& file : FilesOf(argv[i])) {
        std::cout << file.string() << std::endl;  // at once: the next line may never come
        const double seconds = Replay(file);
        ++replayed;
        if (seconds > 1) {
          std::cout << "FINDING: takes " << seconds << " s\n";
          ++failed;
        }
      }
    }
  } catch (const std::exception& error) {
    std::cout << "FINDING: " << error.what() << "\n";
    ++failed;
  }
  std::cout << replayed << " inputs replayed, " << failed << " failed\n";
  return replayed > 0 && failed == 0 ? 0 : 1;
}
