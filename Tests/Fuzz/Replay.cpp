// Calls a fuzz target with every file of the folder that the argument names, and fails if a file
// takes more than a second of processor time, or if there is none.
//
//   ChunkFuzz Tests/Fuzz/corpus/Chunk
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "Tests/Fuzz/Fuzz.hpp"

int main(int, char** argv) {
  int replayed = 0, failed = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    std::cout << entry.path() << std::endl;  // at once: the next line may never come
    std::ifstream stream(entry.path(), std::ios::binary);
    std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
    bytes.shrink_to_fit();  // so that a read beyond the input is one beyond its allocation
    const std::clock_t start = std::clock();
    Fuzz::Target({bytes.data(), bytes.size()});
    ++replayed;
    if (std::clock() - start > CLOCKS_PER_SEC) {
      std::cout << "FINDING: takes more than a second\n";
      ++failed;
    }
  }
  std::cout << replayed << " inputs replayed, " << failed << " failed\n";
  return replayed > 0 && failed == 0 ? 0 : 1;
}
