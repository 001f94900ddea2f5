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

std::string FileStamp(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return "";
  }
  std::string stamp;
  for (const auto number :
       {static_cast<long long>(status.st_dev), static_cast<long long>(status.st_ino),
        static_cast<long long>(status.st_size), static_cast<long long>(status.st_mtim.tv_sec),
        static_cast<long long>(status.st_mtim.tv_nsec)}) {
    stamp += std::to_string(number) + " ";
  }
  return stamp;
}

int CreateEmptyFile(const std::string& path) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  return descriptor >= 0 && close(descriptor) == 0 ? 0 : errno;
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
  int descriptor = -1;
  do {
    descriptor = open("/dev/null", O_PATH);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor >= 0) {
    close(descriptor);
  }
}

void RaiseOpenFileLimit() {
  rlimit limit;
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}
