#include "Utils/Process/Memory.hpp"

#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

#include "Utils/Process/Files.hpp"
#include "Utils/Process/Formatting.hpp"
#include "Utils/Process/WorkerPool.hpp"

namespace {

// Returns the number behind the key, or the first one if the key is empty, or `none`.
std::uint64_t NumberIn(const std::string& path, const std::string& key, std::uint64_t none) {
  std::ifstream file(path);
  std::string word;
  while (!key.empty() && word != key) {
    if (!(file >> word)) {
      return none;
    }
  }
  std::uint64_t number = 0;
  return file >> number ? number : none;
}

// Returns what a control group leaves to data and caches together, of the first version or the
// second.
std::uint64_t LeftInGroup(const std::string& folder) {
  const std::uint64_t none = ~std::uint64_t{0};
  const std::string statistics = folder + "/memory.stat";
  const std::uint64_t limit = std::min(NumberIn(folder + "/memory.max", "", none),
                                       NumberIn(folder + "/memory.limit_in_bytes", "", none));
  const std::uint64_t data = NumberIn(statistics, "anon", NumberIn(statistics, "total_rss", 0));
  return limit - std::min(limit, limit == none ? 0 : data);
}

}  // namespace

std::uint64_t GetCurrentRSS() {
  const Vexa::Descriptor descriptor(open("/proc/self/statm", O_RDONLY | O_CLOEXEC));
  std::array<char, 256> text{};
  const ssize_t length = read(descriptor, text.data(), text.size() - 1);
  long pages = 0;
  if (length <= 0 || std::sscanf(text.data(), "%*s%ld", &pages) != 1) {
    return 0;
  }
  return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

std::uint64_t GetPeakRSS() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::uint64_t>(usage.ru_maxrss) << 10;
}

void GetSystemMemoryBytes(std::uint64_t& total, std::uint64_t& available, std::uint64_t& committed,
                          std::uint64_t& commitLimit) {
  total = available = committed = commitLimit = 0;
  const std::map<std::string, std::uint64_t&> sums = {
      {"MemTotal:", total},         {"MemFree:", available},    {"Buffers:", available},
      {"Cached:", available},       {"SwapCached:", available}, {"Committed_AS:", committed},
      {"CommitLimit:", commitLimit}};
  std::ifstream file("/proc/meminfo");
  std::string line;
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    std::string key;
    std::uint64_t kilobytes = 0;
    const auto sum = fields >> key >> kilobytes ? sums.find(key) : sums.end();
    if (sum != sums.end()) {
      sum->second += kilobytes << 10;
    }
  }
}

void GetMemoryUsageBytes(std::uint64_t& virtualBytes, std::uint64_t& residentBytes) {
  virtualBytes = residentBytes = 0;
  std::ifstream file("/proc/self/stat");
  std::string line;
  std::getline(file, line);
  // The second field is the program's name in parentheses, and a name may hold anything.
  const std::size_t nameEnd = line.rfind(')');
  if (nameEnd == std::string::npos) {
    return;
  }
  std::istringstream fields(line.substr(nameEnd + 1));
  std::string skipped;
  for (int field = 3; field < 23; ++field) {
    fields >> skipped;
  }
  std::uint64_t residentPages = 0;
  if (std::uint64_t bytes = 0; fields >> bytes >> residentPages) {
    virtualBytes = bytes;
    residentBytes = residentPages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  }
}

std::string MemoryUsage() {
  std::uint64_t virtualBytes = 0;
  std::uint64_t residentBytes = 0;
  GetMemoryUsageBytes(virtualBytes, residentBytes);
  return BytesToAscii(static_cast<std::int64_t>(virtualBytes)) + " vm, " +
         BytesToAscii(static_cast<std::int64_t>(residentBytes)) + " res";
}

std::uint64_t Vexa::MemoryLeft() {
  std::uint64_t left = NumberIn("/proc/meminfo", "MemAvailable:", 0) << 10;
  std::ifstream groups("/proc/self/cgroup");
  for (std::string line; std::getline(groups, line);) {
    // "4:memory:/a/b" of the first version, "0::/a/b" of the second
    const std::size_t name = line.find(':') + 1;
    const std::size_t path = line.find(':', name);
    const std::string controllers = line.substr(name, path - name);
    if (path == std::string::npos || (controllers != "memory" && !controllers.empty())) {
      continue;
    }
    const std::string root = std::string("/sys/fs/cgroup") + (controllers.empty() ? "" : "/memory");
    for (std::string group = line.substr(path + 1);; group.resize(group.rfind('/'))) {
      left = std::min(left, LeftInGroup(root + group));
      if (group.find('/') == std::string::npos) {
        break;
      }
    }
  }
  return left;
}

void Vexa::AskForLargePages(void* memory, std::size_t bytes) noexcept {
  constexpr std::size_t sLargePage = std::size_t{1} << 21;
  void* begin = memory;
  if (std::align(sLargePage, sLargePage, begin, bytes) != nullptr) {
    madvise(begin, bytes / sLargePage * sLargePage, MADV_HUGEPAGE);
  }
}

void Vexa::ReturnFreedMemory() {
#if defined(__GLIBC__)
  malloc_trim(0);
#endif
}

void Vexa::KeepFreedMemory() {
#if defined(__GLIBC__)
  mallopt(M_MMAP_THRESHOLD, 16 << 20);
  mallopt(M_TRIM_THRESHOLD, 128 << 20);
  mallopt(M_ARENA_MAX, static_cast<int>(NumberOfThreads()) + 1);
#endif
}
