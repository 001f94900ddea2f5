// Questions about paths, getting files safely onto the disk, and the limit on open files.
// The functions follow symbolic links, and none throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#pragma GCC visibility push(default)

/// Whether something is there, of whatever kind, a directory included; access rights are not
/// checked. A symbolic link that leads nowhere does not exist.
bool FileExists(const std::string& path);

bool DirectoryExists(const std::string& path);

namespace Vexa {

/// Whether the path leads to what can be opened and read like a file: to no directory, FIFO, socket
/// or device.
bool IsRegularFile(const std::string& path);

/// Whether the path leads to a regular file without a single byte.
bool IsEmptyFile(const std::string& path);

/// Which file it is, whatever its names: two paths with equal identities lead to the same file.
struct FileIdentity {
  unsigned long long mDevice;
  unsigned long long mNumber;
  bool operator==(const FileIdentity&) const = default;
};
/// Returns nothing if there is no file.
std::optional<FileIdentity> IdentityOf(const std::string& path);

/// Returns device, number, size and time of the last change of a file as a text, which changes when
/// another file takes its place or its contents are written to. It is empty if there is no file.
std::string FileStamp(const std::string& path);

/// Owns a descriptor, and closes it; a negative number is none.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : mNumber(number) {}
  Descriptor(Descriptor&& other) noexcept : mNumber(std::exchange(other.mNumber, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(mNumber, other.mNumber);
    return *this;
  }
  ~Descriptor();

  // A descriptor is passed where the system wants its number.
  operator int() const { return mNumber; }  // NOLINT(google-explicit-constructor)

 private:
  int mNumber = -1;
};

/// A file that this process has open, whatever becomes of its name. Closing it elsewhere does not
/// let it go.
class FileDescriptor {
 public:
  /// Duplicates the descriptor. If that fails, so does every operation.
  explicit FileDescriptor(int descriptor);

  /// Returns the size of the file, or 0 if it is not known.
  std::uint64_t Bytes() const;
  /// Reads so many bytes, and returns false if there are fewer or reading fails.
  bool Read(std::uint64_t position, void* bytes, std::size_t count) const;
  /// Returns once the contents are on the disk: 0, or the errno of the call that failed.
  int FlushToDisk() const;
  /// Says whether the system is to read more than what is asked for, which then holds for whoever
  /// gave the descriptor, too.
  void SetReadAhead(bool isWanted) const;
  /// Returns what FileStamp() returns of a path that leads to the file.
  std::string Stamp() const;
  /// Whether `path` is a name of this file itself, not of a link to it.
  bool HasName(const std::string& path) const;

 private:
  Descriptor mDescriptor;
};

/// Returns once the contents of the file, or the entries of the directory, are on the disk: 0, or
/// the errno of the call that failed. A file system that cannot flush a directory counts as
/// flushed, since there is nothing a caller could do about it.
int FlushToDisk(const std::string& path);

/// Sees to it that the standard descriptors are taken: those that are closed are opened, so that
/// every read or write still fails. Otherwise the next file that is opened would be one of them,
/// and get what is meant for standard error.
void TakeStandardDescriptors();

/// Raises the soft limit on open files of this process to the hard limit, as far as the system
/// lets it.
void RaiseOpenFileLimit();

}  // namespace Vexa

#pragma GCC visibility pop
