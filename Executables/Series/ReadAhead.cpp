#include "Executables/Series/ReadAhead.hpp"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <numeric>
#include <thread>
#include <utility>
#include <vector>

#include "Utils/Process/Memory.hpp"

namespace {

constexpr std::size_t sRequestBytes = std::size_t{1} << 20;
// Enough to fill a wire whose requests take some milliseconds.
constexpr int sThreads = 4;
// Less than this is read as soon as threads are started.
constexpr std::uint64_t sLeastBytes = std::uint64_t{1} << 20;
// A page that is in memory takes a microsecond or two, one from the fastest disk a hundred.
constexpr std::chrono::microseconds sSlow(50);

// A file that is open for reading, if it is a regular one.
class Source {
 public:
  Source() = default;
  explicit Source(const std::string& path)
      : mDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {}
  Source(Source&& other) noexcept : mDescriptor(std::exchange(other.mDescriptor, -1)) {}
  Source& operator=(Source&& other) noexcept {
    std::swap(mDescriptor, other.mDescriptor);
    return *this;
  }
  ~Source() {
    if (mDescriptor >= 0) {
      close(mDescriptor);
    }
  }

  // Returns how long the bytes take, or a negative time if they cannot be had.
  std::chrono::nanoseconds Read(std::uint64_t at, void* scratch, std::size_t bytes) const {
    const auto begin = std::chrono::steady_clock::now();
    const ssize_t read = pread(mDescriptor, scratch, bytes, static_cast<off_t>(at));
    return read > 0 ? std::chrono::steady_clock::now() - begin : std::chrono::nanoseconds(-1);
  }

  // One slow probe may be that of a thread that was interrupted.
  bool IsInMemory(std::uint64_t bytes) const {
    constexpr std::uint64_t probes = 8;
    int slow = 0;
    for (std::uint64_t i = 0; i < probes && slow < 2; ++i) {
      char byte = 0;
      slow += Read(bytes / probes * i, &byte, 1) > sSlow ? 1 : 0;
    }
    return slow < 2;
  }

 private:
  int mDescriptor = -1;
};

std::uint64_t BytesOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)
             ? static_cast<std::uint64_t>(status.st_size)
             : 0;
}

}  // namespace

class ReadAhead::Work {
 public:
  explicit Work(const MyVector<std::string>& paths) {
    for (const std::string& path : paths) {
      mFiles.push_back({path, BytesOf(path)});
    }
  }

  std::uint64_t TotalBytes() const {
    return std::accumulate(mFiles.begin(), mFiles.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const File& file) { return sum + file.mBytes; });
  }

  void LeaveOut(std::size_t file) {
    const std::lock_guard lock(mMutex);
    mFiles[file].mNext = mFiles[file].mBytes;
  }

  void End() {
    const std::lock_guard lock(mMutex);
    mFirst = mFiles.size();
  }

  // What each thread does.
  void Run() {
    Source source;
    std::size_t opened = mFiles.size();
    std::vector<char> scratch;
    for (Piece piece = Next(); piece.mFile < mFiles.size(); piece = Next()) {
      const File& file = mFiles[piece.mFile];
      if (opened != piece.mFile) {
        source = Source(file.mPath);
        opened = piece.mFile;
      }
      if (piece.mIsProbe) {
        EndProbing(piece.mFile, source.IsInMemory(file.mBytes));
        continue;
      }
      scratch.resize(sRequestBytes);
      const auto first = source.Read(piece.mAt, scratch.data(), sRequestBytes);
      if (first.count() < 0) {
        LeaveOut(piece.mFile);
      } else if (IsFirstRead() &&
                 source.Read(piece.mAt, scratch.data(), sRequestBytes) > first * 0.8) {
        End();
      }
    }
  }

 private:
  enum class State { Unknown, Probed, Cold };
  struct File {
    std::string mPath;
    std::uint64_t mBytes;
    std::uint64_t mNext = 0;  // all before this is read, or on its way
    State mState = State::Unknown;
  };
  struct Piece {
    std::size_t mFile;
    std::uint64_t mAt = 0;
    bool mIsProbe = false;
  };

  // Returns what is to be read next, or a file beyond all if nothing is left.
  Piece Next() {
    const std::lock_guard lock(mMutex);
    while (mFirst < mFiles.size() && mFiles[mFirst].mNext >= mFiles[mFirst].mBytes) {
      ++mFirst;
    }
    for (std::size_t i = mFirst; i < mFiles.size(); ++i) {
      File& file = mFiles[i];
      if (file.mNext < file.mBytes && file.mState == State::Unknown) {
        file.mState = State::Probed;
        return {i, 0, true};
      }
      if (file.mNext < file.mBytes && file.mState == State::Cold) {
        return {i, std::exchange(file.mNext, file.mNext + sRequestBytes)};
      }
    }
    return {mFiles.size()};
  }

  void EndProbing(std::size_t file, bool isInMemory) {
    if (isInMemory) {
      LeaveOut(file);
    } else {
      const std::lock_guard lock(mMutex);
      mFiles[file].mState = State::Cold;
    }
  }

  bool IsFirstRead() {
    const std::lock_guard lock(mMutex);
    return !std::exchange(mHasRead, true);
  }

  std::mutex mMutex;
  std::vector<File> mFiles;
  std::size_t mFirst = 0;  // all files before this one are done
  bool mHasRead = false;
};

ReadAhead::ReadAhead(const MyVector<std::string>& paths) {
  if (std::getenv("VEXA_NO_READ_AHEAD") != nullptr) {
    return;
  }
  const auto work = std::make_shared<Work>(paths);
  const std::uint64_t bytes = work->TotalBytes();
  if (bytes < sLeastBytes || bytes > Vexa::MemoryLeft() / 2) {
    return;
  }
  mpWork = work;
  // Signals are for the thread that the run is in.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    for (int i = 0; i < sThreads; ++i) {
      std::thread([work] {
        try {
          work->Run();
        } catch (const std::exception&) {  // There is no memory for it.
        }
      }).detach();
    }
  } catch (const std::exception&) {  // Those that were started do all.
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

ReadAhead::~ReadAhead() {
  if (mpWork != nullptr) {
    mpWork->End();
  }
}

void ReadAhead::LeaveOut(std::size_t file) {
  if (mpWork != nullptr) {
    mpWork->LeaveOut(file);
  }
}
