#include "Executables/Series/ReadAhead.hpp"

#include <pthread.h>

#include <atomic>
#include <condition_variable>
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
    mHasEnded = true;
    mChanged.notify_all();
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
      const bool isBeginning = piece.mAt == 0;
      const bool isCold = !isBeginning || !source.IsInMemory(file.mBytes);
      if (!isCold || !HasRead(source, piece.mAt)) {
        LeaveOut(piece.mFile);
      }
      if (isBeginning) {
        EndBeginning(piece.mFile);
      }
    }
  }

 private:
  struct File {
    std::string mPath;
    std::uint64_t mBytes;
    std::uint64_t mNext = 0;  // all before this is read, or on its way
    bool mHasBegun = false;   // so that it is known to be left out, if it is
  };
  struct Piece {
    std::size_t mFile;
    std::uint64_t mAt = 0;
  };

  // Returns what is to be read next, or a file beyond all if nothing is left. The beginnings of all
  // files come first, as the run looks for names there before it reads anything else.
  Piece Next() {
    std::unique_lock lock(mMutex);
    if (!mHasEnded && mBegun < mFiles.size()) {
      mFiles[mBegun].mNext += ReadAheadSource::sRequestBytes;
      return {mBegun++};
    }
    while (!mHasEnded && mFirst < mFiles.size()) {
      for (std::size_t i = mFirst; i < mFiles.size(); ++i) {
        File& file = mFiles[i];
        if (file.mHasBegun && file.mNext < file.mBytes) {
          return {i, std::exchange(file.mNext, file.mNext + ReadAheadSource::sRequestBytes)};
        }
        mFirst += i == mFirst && file.mHasBegun ? 1 : 0;
      }
      if (mFirst < mFiles.size()) {
        mChanged.wait(lock);
      }
    }
    return {mFiles.size()};
  }

  void EndBeginning(std::size_t file) {
    const std::lock_guard lock(mMutex);
    mFiles[file].mHasBegun = true;
    mChanged.notify_all();
  }

  // Returns whether the file could be read.
  bool HasRead(const ReadAheadSource& source, std::uint64_t at) {
    if (mHasRead.exchange(true)) {
      return source.Read(at, ReadAheadSource::sRequestBytes).count() >= 0;
    }
    if (!source.IsKept(at, ReadAheadSource::sRequestBytes)) {
      End();
    }
    return true;
  }

  std::mutex mMutex;
  std::vector<File> mFiles;
  std::condition_variable mChanged;
  std::size_t mBegun = 0;  // so many files are begun, or on their way
  std::size_t mFirst = 0;  // all files before this one are done
  bool mHasEnded = false;
  std::atomic<bool> mHasRead = false;
};

}  // namespace

ReadAhead::ReadAhead(const MyVector<std::string>& paths, Need need)
    : mPaths(paths.begin(), paths.end()), mNeed(need) {
  if (std::getenv("VEXA_NO_READ_AHEAD") != nullptr) {
    return;
  }
  const auto work = std::make_shared<WholeFiles>(mPaths);
  const std::uint64_t bytes = work->TotalBytes();
  mIsMemoryShort = bytes > Vexa::MemoryLeft() / 2;
  mNeedsPlan = bytes >= sLeastBytes && (need != Need::All || mIsMemoryShort);
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
    const auto wanted =
        mNeed == Need::Times ? Vexa_H5::WantedValues::Times : Vexa_H5::WantedValues::All;
    Begin(std::make_shared<ReadAheadRanges>(mPaths, std::move(plan), wanted, mIsMemoryShort),
          sThreadsForRanges);
  }
}

void ReadAhead::Reach(std::size_t dataset) {
  if (mpWork != nullptr) {
    mpWork->Reach(dataset);
  }
}

void ReadAhead::Approach(const Rows& rows) {
  if (mpWork != nullptr) {
    mpWork->Approach(rows);
  }
}

void ReadAhead::LeaveOut(std::size_t file) {
  if (mpWork != nullptr) {
    mpWork->LeaveOut(file);
  }
}

void ReadAhead::Begin(const std::shared_ptr<Work>& work, int threads) {
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
