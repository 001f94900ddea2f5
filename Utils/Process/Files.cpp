#include "Utils/Process/Files.hpp"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace {

// The file type bits of the mode, or 0 if there is nothing.
mode_t FileType(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 ? status.st_mode & S_IFMT : 0;
}

}  // namespace

bool FileExists(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0;
}

bool DirectoryExists(const std::string& path) {
  return FileType(path) == S_IFDIR;
}

bool IsRegularFile(const std::string& path) {
  return FileType(path) == S_IFREG;
}

bool IsEmptyFile(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0;
}

std::optional<FileIdentity> IdentityOf(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) {
    return std::nullopt;
  }
  return FileIdentity{status.st_dev, status.st_ino};
}

namespace {

std::string StampFrom(const struct stat& status) {
  std::string stamp;
  for (const auto number :
       {static_cast<long long>(status.st_dev), static_cast<long long>(status.st_ino),
        static_cast<long long>(status.st_size), static_cast<long long>(status.st_mtim.tv_sec),
        static_cast<long long>(status.st_mtim.tv_nsec)}) {
    stamp += std::to_string(number) + " ";
  }
  return stamp;
}

}  // namespace

std::string FileStamp(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? StampFrom(status) : "";
}

HeldFile::HeldFile(int descriptor) : mDescriptor(fcntl(descriptor, F_DUPFD_CLOEXEC, 0)) {}

HeldFile::~HeldFile() {
  if (mDescriptor >= 0) {
    close(mDescriptor);
  }
}

std::string HeldFile::Stamp() const {
  struct stat status {};
  return fstat(mDescriptor, &status) == 0 ? StampFrom(status) : "";
}

std::uint64_t HeldFile::Bytes() const {
  struct stat status {};
  return fstat(mDescriptor, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

bool HeldFile::Read(std::uint64_t position, void* bytes, std::size_t count) const {
  auto* next = static_cast<char*>(bytes);
  while (count > 0) {
    // A read may be cut short, or interrupted before it began.
    const ssize_t got = pread(mDescriptor, next, count, static_cast<off_t>(position));
    if (got == 0 || (got < 0 && errno != EINTR)) {
      return false;
    }
    const std::size_t more = got < 0 ? 0 : static_cast<std::size_t>(got);
    next += more;
    position += more;
    count -= more;
  }
  return true;
}

int HeldFile::FlushToDisk() const {
  return fsync(mDescriptor) == 0 ? 0 : errno;
}

bool HeldFile::HasName(const std::string& path) const {
  struct stat held {};
  struct stat named {};
  return fstat(mDescriptor, &held) == 0 && lstat(path.c_str(), &named) == 0 &&
         held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

int FlushToDisk(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) {
    return errno;
  }
  int error = fsync(descriptor) == 0 ? 0 : errno;
  if (error == EINVAL && DirectoryExists(path)) {
    error = 0;
  }
  close(descriptor);
  return error;
}

void TakeStandardDescriptors() {
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(standard, F_GETFD) < 0 && errno == EBADF) {
      open("/dev/null", O_PATH);  // gets the lowest number that is free
    }
  }
}

void RaiseOpenFileLimit() {
  rlimit limit;
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}
