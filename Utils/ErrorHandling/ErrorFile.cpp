#include "Utils/ErrorHandling/ErrorFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>

#include "Utils/ErrorHandling/ParallelRuntime.hpp"
#include "Utils/Process/RunInformation.hpp"

namespace {

// Which file this process created is kept, since a network file system may show another owner.
std::atomic<dev_t> sDeviceOfCreated = 0;
std::atomic<ino_t> sNumberOfCreated = 0;

bool IsCreatedHere(const struct stat& status) {
  return status.st_ino == sNumberOfCreated && status.st_dev == sDeviceOfCreated;
}

int OpenExisting(const char* path) {
  // A pipe without a reader does not make the open wait.
  constexpr int flags = O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const int descriptor = open(path, O_RDWR | flags);
  return descriptor < 0 && errno == EACCES ? open(path, O_WRONLY | flags) : descriptor;
}

int Create(const char* path) {
  const int descriptor =
      open(path, O_RDWR | O_APPEND | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
  struct stat status {};
  if (descriptor >= 0 && fstat(descriptor, &status) == 0) {
    sDeviceOfCreated = status.st_dev;
    sNumberOfCreated = status.st_ino;
  }
  return descriptor;
}

int Open(const char* path) {
  int descriptor = OpenExisting(path);
  if (descriptor < 0 && errno == ENOENT) {
    descriptor = Create(path);
    if (descriptor < 0 && errno == EEXIST) {  // somebody was faster
      descriptor = OpenExisting(path);
    }
  }
  return descriptor;
}

// The signature stands at the beginning or behind a user block, whose size is 512 times a power
// of 2.
bool IsHdf5(int descriptor, off_t size) {
  constexpr std::string_view signature = "\x89HDF\r\n\x1a\n";
  std::array<char, signature.size()> bytes;
  for (off_t offset = 0; offset < size; offset = offset == 0 ? 512 : 2 * offset) {
    if (pread(descriptor, bytes.data(), bytes.size(), offset) ==
            static_cast<ssize_t>(bytes.size()) &&
        std::string_view(bytes.data(), bytes.size()) == signature) {
      return true;
    }
  }
  return false;
}

// Returns why nothing may be added to the file, or null if something may.
const char* Objection(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) {
    return strerrordesc_np(errno);
  }
  return !S_ISREG(status.st_mode)                               ? "it is not a regular file"
         : status.st_nlink != 1                                 ? "it does not have one name"
         : status.st_uid != geteuid() && !IsCreatedHere(status) ? "it is another user's"
         : IsHdf5(descriptor, status.st_size)                   ? "it is an HDF5 file"
                                                                : nullptr;
}

const char* OpenObjection(int error) {
  const char* description = strerrordesc_np(error);
  return error == ELOOP           ? "it is a symbolic link"
         : error == ENXIO         ? "it is not a regular file"
         : description == nullptr ? "it cannot be opened"
                                  : description;
}

}  // namespace

Vexa::ErrorFile::ErrorFile() {
  try {
    mDescriptor = Vexa::Descriptor(Open(Path().c_str()));
    mpReason = mDescriptor < 0 ? OpenObjection(errno) : Objection(mDescriptor);
  } catch (const std::bad_alloc&) {
    mpReason = strerrordesc_np(ENOMEM);
  }
}

std::string Vexa::ErrorFile::Path() {
  const std::string rank = std::to_string(Vexa::ParallelRuntime::Instance().Rank());
  const std::size_t digits = std::max<std::size_t>(rank.size(), 3);
  return RunDirectory() + "/Errors" + std::string(digits - rank.size(), '0') + rank + ".txt";
}

bool Vexa::ErrorFile::IsFirstFailure() {
  static std::atomic<bool> sHasFailed = false;
  return !sHasFailed.exchange(true);
}

void Vexa::ErrorFile::Append(std::string_view text) {
  while (mpReason == nullptr && !text.empty()) {
    const ssize_t written = write(mDescriptor, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0 || errno != EINTR) {
      mpReason = OpenObjection(errno);
    }
  }
}
