#include "Utils/Process/WriteBehind.hpp"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace Vexa {

namespace {

// As much is worth a request of its own, also where each takes milliseconds.
constexpr std::size_t sMostBytesARequest = 2 * 1024 * 1024;

// The page cache takes thousands of MB a second, a wire or a full cache some hundreds at most.
constexpr double sSlowBytesASecond = 500e6;
constexpr double sBytesToJudgeBy = 16 * 1024 * 1024;

// Returns how often the calling thread has waited for something other than its turn.
long WaitsSoFar() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nvcsw;
}

}  // namespace

void WritePace::Add(std::size_t bytes, double seconds) {
  mBytes += static_cast<double>(bytes);
  mSeconds += seconds;
  const bool isSlow = mSeconds * sSlowBytesASecond > std::max(mBytes, sBytesToJudgeBy);
  if (isSlow || mBytes >= sBytesToJudgeBy) {
    mIsSlow = isSlow;
    mBytes = mSeconds = 0;
  }
}

WriteTimer::WriteTimer() : mStart(std::chrono::steady_clock::now()), mWaits(WaitsSoFar()) {}

double WriteTimer::SecondsIfWaiting() const {
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - mStart;
  return WaitsSoFar() > mWaits ? time.count() : 0;
}

WriteBehind::WriteBehind(int descriptor, const WritePace& pace)
    : mDescriptor(descriptor),
      mPace(pace),
      mThread([this](const std::stop_token& stop) { Work(stop); }) {}

bool WriteBehind::Write(std::uint64_t address, const unsigned char* bytes, std::size_t size) {
  std::unique_lock lock(mMutex);
  while (size > 0) {
    mChanged.wait(lock, [this] { return mSize < sMostBytesHeld || mHasFailed; });
    if (mHasFailed) {
      return false;
    }
    const std::size_t end = (mBegin + mSize) % sMostBytesHeld;
    const std::size_t count = std::min({size, sMostBytesHeld - mSize, sMostBytesHeld - end});
    lock.unlock();
    std::copy_n(bytes, count, &mRing[end]);
    lock.lock();
    if (!mRanges.empty() && mRanges.back().mAddress + mRanges.back().mSize == address) {
      mRanges.back().mSize += count;
    } else {
      mRanges.push_back({address, count});
    }
    mSize += count;
    mChanged.notify_all();
    address += count;
    bytes += count;
    size -= count;
  }
  return true;
}

bool WriteBehind::Wait() {
  std::unique_lock lock(mMutex);
  mChanged.wait(lock, [this] { return mSize == 0 || mHasFailed; });
  return !mHasFailed;
}

WritePace WriteBehind::Pace() const {
  const std::lock_guard lock(mMutex);
  return mPace;
}

WriteBehind::Piece WriteBehind::Next() const {
  const Range& range = mRanges.front();
  return {range.mAddress, &mRing[mBegin],
          std::min({range.mSize, sMostBytesARequest, sMostBytesHeld - mBegin})};
}

void WriteBehind::Work(const std::stop_token& stop) {
  std::unique_lock lock(mMutex);
  while (mChanged.wait(lock, stop, [this] { return mSize > 0; })) {
    const Piece piece = Next();
    lock.unlock();
    const WriteTimer timer;
    const bool isWritten = WriteNow(piece);
    const double seconds = timer.SecondsIfWaiting();
    lock.lock();
    if (!isWritten) {
      mHasFailed = true;
      mChanged.notify_all();
      return;
    }
    mPace.Add(piece.mSize, seconds);
    mBegin = (mBegin + piece.mSize) % sMostBytesHeld;
    mSize -= piece.mSize;
    mRanges.front().mAddress += piece.mSize;
    mRanges.front().mSize -= piece.mSize;
    if (mRanges.front().mSize == 0) {
      mRanges.pop_front();
    }
    mChanged.notify_all();
  }
}

bool WriteBehind::WriteNow(const Piece& piece) const {
  for (std::size_t done = 0; done < piece.mSize;) {
    const ssize_t count = pwrite(mDescriptor, piece.mBytes + done, piece.mSize - done,
                                 static_cast<off_t>(piece.mAddress + done));
    if (count <= 0 && !(count < 0 && errno == EINTR)) {
      return false;
    }
    done += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
  }
  return true;
}

}  // namespace Vexa
