// Shows a folder as one at the end of a slow wire: every read request takes a fixed time, and
// besides the time that its bytes take. Requests that are on their way together do not wait for one
// another.
//
//   WireFs source mountpoint microseconds-a-request bytes-a-second
//
// Runs until it is unmounted, and prints then how many requests and bytes crossed the wire. What
// was read once is in the page cache, as it is with any other file system; mounting it again
// empties that.
#define FUSE_USE_VERSION 312
#include <dirent.h>
#include <fcntl.h>
#include <fuse3/fuse.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

namespace {

constexpr unsigned sLargestRequest = 1 << 20;

struct Wire {
  std::string mSource;
  double mSecondsARequest = 0;
  double mBytesASecond = 0;
  std::atomic<long> mRequests = 0;
  std::atomic<long> mBytes = 0;
};

Wire& TheWire() {
  return *static_cast<Wire*>(fuse_get_context()->private_data);
}

std::string SourceOf(const char* path) {
  return TheWire().mSource + path;
}

void* Begin(fuse_conn_info* connection, fuse_config*) {
  connection->max_read = sLargestRequest;
  connection->max_readahead = sLargestRequest;
  connection->max_write = sLargestRequest;  // which bounds the size of a request to read, too
  return &TheWire();
}

int GetAttributes(const char* path, struct stat* status, fuse_file_info*) {
  return lstat(SourceOf(path).c_str(), status) == 0 ? 0 : -errno;
}

int ReadFolder(const char* path, void* entries, fuse_fill_dir_t add, off_t, fuse_file_info*,
               fuse_readdir_flags) {
  DIR* const folder = opendir(SourceOf(path).c_str());
  if (folder == nullptr) {
    return -errno;
  }
  while (const dirent* entry = readdir(folder)) {
    add(entries, entry->d_name, nullptr, 0, fuse_fill_dir_flags{});
  }
  closedir(folder);
  return 0;
}

int Open(const char* path, fuse_file_info* file) {
  const int descriptor = open(SourceOf(path).c_str(), O_RDONLY);
  file->fh = static_cast<std::uint64_t>(descriptor);
  file->keep_cache = 1;
  return descriptor < 0 ? -errno : 0;
}

int Read(const char*, char* buffer, std::size_t size, off_t offset, fuse_file_info* file) {
  const ssize_t bytes = pread(static_cast<int>(file->fh), buffer, size, offset);
  if (bytes < 0) {
    return -errno;
  }
  Wire& wire = TheWire();
  ++wire.mRequests;
  wire.mBytes += bytes;
  std::this_thread::sleep_for(std::chrono::duration<double>(
      wire.mSecondsARequest + static_cast<double>(bytes) / wire.mBytesASecond));
  return static_cast<int>(bytes);
}

int Release(const char*, fuse_file_info* file) {
  return close(static_cast<int>(file->fh)) == 0 ? 0 : -errno;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: WireFs source mountpoint microseconds-a-request bytes-a-second\n");
    return 2;
  }
  Wire wire;
  wire.mSource = std::filesystem::canonical(argv[1]);
  wire.mSecondsARequest = std::atof(argv[3]) * 1e-6;
  wire.mBytesASecond = std::atof(argv[4]);
  fuse_operations operations{};
  operations.init = Begin;
  operations.getattr = GetAttributes;
  operations.readdir = ReadFolder;
  operations.open = Open;
  operations.read = Read;
  operations.release = Release;
  char foreground[] = "-f";
  char options[] = "-oro,max_read=1048576,max_threads=64";
  char* arguments[] = {argv[0], foreground, options, argv[2], nullptr};
  const int status = fuse_main(4, arguments, &operations, &wire);
  std::printf("%ld requests, %ld bytes\n", wire.mRequests.load(), wire.mBytes.load());
  return status;
}
