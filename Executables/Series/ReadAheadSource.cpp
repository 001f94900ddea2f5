#include "Executables/Series/ReadAheadSource.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>

namespace {

// A page that is in memory takes a microsecond or two, one from the fastest disk a hundred.
constexpr std::chrono::microseconds sSlow(50);

}  // namespace

ReadAheadSource::ReadAheadSource(const std::string& path)
    : mDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {}

std::uint64_t ReadAheadSource::BytesOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)
             ? static_cast<std::uint64_t>(status.st_size)
             : 0;
}

void ReadAheadSource::ReadNoFurther() const {
  posix_fadvise(mDescriptor, 0, 0, POSIX_FADV_RANDOM);
}

std::vector<std::byte> ReadAheadSource::Bytes(std::uint64_t at, std::uint64_t count) const {
  std::vector<std::byte> bytes(count);
  const ssize_t read = pread(mDescriptor, bytes.data(), count, static_cast<off_t>(at));
  bytes.resize(read > 0 ? static_cast<std::size_t>(read) : 0);
  return bytes;
}

std::chrono::nanoseconds ReadAheadSource::Read(std::uint64_t at, std::size_t bytes) const {
  // What is read goes over what was read before, as nobody looks at it.
  constexpr std::size_t part = 64 * 1024;
  thread_local std::vector<char> scratch(part);
  std::vector<iovec> parts((std::min(bytes, sRequestBytes) - 1) / part + 1, {scratch.data(), part});
  parts.back().iov_len = (std::min(bytes, sRequestBytes) - 1) % part + 1;
  const auto begin = std::chrono::steady_clock::now();
  const ssize_t read =
      preadv(mDescriptor, parts.data(), static_cast<int>(parts.size()), static_cast<off_t>(at));
  return read > 0 ? std::chrono::steady_clock::now() - begin : std::chrono::nanoseconds(-1);
}

bool ReadAheadSource::IsKept(std::uint64_t at, std::size_t bytes) const {
  const auto first = Read(at, bytes);
  const bool wasInMemory = first < sSlow + std::chrono::nanoseconds(bytes);
  return wasInMemory || Read(at, bytes) <= first * 0.8;
}

void ReadAheadSource::Release(std::uint64_t begin, std::uint64_t end) const {
  posix_fadvise(mDescriptor, static_cast<off_t>(begin), static_cast<off_t>(end - begin),
                POSIX_FADV_DONTNEED);
}

// One slow probe may be that of a thread that was interrupted.
bool ReadAheadSource::IsInMemory(std::uint64_t bytes) const {
  constexpr std::uint64_t probes = 8;
  int slow = 0;
  for (std::uint64_t i = 0; i < probes && slow < 2; ++i) {
    slow += Read(bytes / probes * i, 1) > sSlow ? 1 : 0;
  }
  return slow < 2;
}
