#include "Executables/Series/ReadAhead.hpp"

#include <pthread.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <numeric>
#include <thread>
#include <utility>

#include "Executables/Series/ReadAheadRanges.hpp"
#include "Executables/Series/ReadAheadSource.hpp"
#include "Utils/Process/Memory.hpp"

namespace {

// Enough to fill a wire whose requests take some milliseconds.
constexpr int sThreads = 4;
// Ranges take smaller requests, and looking for them takes many.
constexpr int sThreadsForRanges = 8;
// Less than this is read as soon as threads are started.
constexpr std::uint64_t sLeastBytes = std::uint64_t{1} << 20;

// Reads files from front to back.
class WholeFiles : public ReadAhead::Work {
 public:
  explicit WholeFiles(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
      mFiles.push_back({path, ReadAheadSource::BytesOf(path)});
    }
  }

  std::uint64_t TotalBytes() const {
    return std::accumulate(mFiles.begin(), mFiles.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const File& file) { return sum + file.mBytes; });
  }

  void LeaveOut(std::size_t file) override {
    const std::lock_guard lock(mMutex);
    mFiles[file].mNext = mFiles[file].mBytes;
  }

  void End() override {
    const std::lock_guard lock(mMutex);
    mFirst = mFiles.size();
  }

  void Run() override {
    ReadAheadSource source;
    std::size_t opened = mFiles.size();
    for (Piece piece = Next(); piece.mFile < mFiles.size(); piece = Next()) {
      const File& file = mFiles[piece.mFile];
      if (opened != piece.mFile) {
        source = ReadAheadSource(file.mPath);
        opened = piece.mFile;
      }
      if (piece.mIsProbe) {
        EndProbing(piece.mFile, source.IsInMemory(file.mBytes));
      } else if (IsFirstRead()) {
        if (!source.IsKept(piece.mAt, ReadAheadSource::sRequestBytes)) {
          End();
        }
      } else if (source.Read(piece.mAt, ReadAheadSource::sRequestBytes).count() < 0) {
        LeaveOut(piece.mFile);
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
        return {i, std::exchange(file.mNext, file.mNext + ReadAheadSource::sRequestBytes)};
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

}  // namespace

ReadAhead::ReadAhead(const MyVector<std::string>& paths, Need need)
    : mPaths(paths.begin(), paths.end()) {
  if (need == Need::Little || std::getenv("VEXA_NO_READ_AHEAD") != nullptr) {
    return;
  }
  const auto work = std::make_shared<WholeFiles>(mPaths);
  const std::uint64_t bytes = work->TotalBytes();
  mIsMemoryShort = bytes > Vexa::MemoryLeft() / 2;
  mNeedsPlan = bytes >= sLeastBytes && (need == Need::Parts || mIsMemoryShort);
  if (bytes >= sLeastBytes && !mNeedsPlan) {
    Begin(work, sThreads);
  }
}

ReadAhead::~ReadAhead() {
  if (mpWork != nullptr) {
    mpWork->End();
  }
}

void ReadAhead::Follow(Plan plan) {
  if (mNeedsPlan) {
    Begin(std::make_shared<ReadAheadRanges>(mPaths, std::move(plan), mIsMemoryShort),
          sThreadsForRanges);
  }
}

void ReadAhead::Reach(std::size_t dataset) {
  if (mpWork != nullptr) {
    mpWork->Reach(dataset);
  }
}

void ReadAhead::LeaveOut(std::size_t file) {
  if (mpWork != nullptr) {
    mpWork->LeaveOut(file);
  }
}

void ReadAhead::Begin(std::shared_ptr<Work> work, int threads) {
  mpWork = work;
  // Signals are for the thread that the run is in.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    for (int i = 0; i < threads; ++i) {
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
