#include "Utils/Process/Files.hpp"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace {

using Status = std::optional<struct stat>;

Status StatusOf(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 ? Status(status) : std::nullopt;
}

Status StatusOf(int descriptor) {
  struct stat status;
  return fstat(descriptor, &status) == 0 ? Status(status) : std::nullopt;
}

std::string StampFrom(const Status& status) {
  using std::to_string;
  return !status ? ""
                 : to_string(status->st_dev) + " " + to_string(status->st_ino) + " " +
                       to_string(status->st_size) + " " + to_string(status->st_mtim.tv_sec) + " " +
                       to_string(status->st_mtim.tv_nsec);
}

}  // namespace

bool FileExists(const std::string& path) {
  return StatusOf(path).has_value();
}

bool DirectoryExists(const std::string& path) {
  const Status status = StatusOf(path);
  return status && S_ISDIR(status->st_mode);
}

bool Vexa::IsRegularFile(const std::string& path) {
  const Status status = StatusOf(path);
  return status && S_ISREG(status->st_mode);
}

bool Vexa::IsEmptyFile(const std::string& path) {
  const Status status = StatusOf(path);
  return status && S_ISREG(status->st_mode) && status->st_size == 0;
}

std::optional<Vexa::FileIdentity> Vexa::IdentityOf(const std::string& path) {
  const Status status = StatusOf(path);
  return status ? std::optional(Vexa::FileIdentity{status->st_dev, status->st_ino}) : std::nullopt;
}

std::string Vexa::FileStamp(const std::string& path) {
  return StampFrom(StatusOf(path));
}

Vexa::Descriptor::~Descriptor() {
  if (mNumber >= 0) {
    close(mNumber);
  }
}

Vexa::FileDescriptor::FileDescriptor(int descriptor)
    : mDescriptor(fcntl(descriptor, F_DUPFD_CLOEXEC, 0)) {}

std::string Vexa::FileDescriptor::Stamp() const {
  return StampFrom(StatusOf(mDescriptor));
}

std::uint64_t Vexa::FileDescriptor::Bytes() const {
  const Status status = StatusOf(mDescriptor);
  return status ? static_cast<std::uint64_t>(status->st_size) : 0;
}

bool Vexa::FileDescriptor::Read(std::uint64_t position, void* bytes, std::size_t count) const {
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

int Vexa::FileDescriptor::FlushToDisk() const {
  return fsync(mDescriptor) == 0 ? 0 : errno;
}

void Vexa::FileDescriptor::SetReadAhead(bool isWanted) const {
  posix_fadvise(mDescriptor, 0, 0, isWanted ? POSIX_FADV_NORMAL : POSIX_FADV_RANDOM);
}

bool Vexa::FileDescriptor::HasName(const std::string& path) const {
  const Status own = StatusOf(mDescriptor);
  struct stat named;
  return own && lstat(path.c_str(), &named) == 0 && own->st_dev == named.st_dev &&
         own->st_ino == named.st_ino;
}

int Vexa::FlushToDisk(const std::string& path) {
  const Descriptor descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  const int error = descriptor < 0 || fsync(descriptor) != 0 ? errno : 0;
  return error == EINVAL && DirectoryExists(path) ? 0 : error;
}

void Vexa::TakeStandardDescriptors() {
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(standard, F_GETFD) < 0 && errno == EBADF) {
      open("/dev/null", O_PATH);  // gets the lowest number that is free
    }
  }
}

void Vexa::RaiseOpenFileLimit() {
  rlimit limit;
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}
