// A thread that writes to a file what it is given, while the caller goes on.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <stop_token>
#include <thread>

namespace Vexa {

/// Tells a file that keeps its writer waiting from one whose bytes the system merely copies.
class WritePace {
 public:
  /// So many bytes made the writer wait for so many seconds. What IsSlow() says changes with every
  /// 16 MiB, or when the writer has waited for longer than they may take.
  void Add(std::size_t bytes, double seconds);
  /// Whether the file takes less than 500 MB a second.
  bool IsSlow() const { return mIsSlow; }

 private:
  double mBytes = 0;
  double mSeconds = 0;
  bool mIsSlow = false;
};

/// Measures how long a write makes the calling thread wait.
class WriteTimer {
 public:
  WriteTimer();
  /// Returns the time since the constructor, or 0 if the thread has not waited for anything in it.
  /// Whoever has to share the processor takes longer, too, but is not waiting.
  double SecondsIfWaiting() const;

 private:
  std::chrono::steady_clock::time_point mStart;
  long mWaits;
};

/// Writes in the order in which it is given something, and what is adjacent in the file together,
/// up to 2 MiB a request. It holds 4 MiB at most. After a write that failed it writes nothing more.
/// The thread calls nothing but pwrite. All members are for one thread, the caller's.
class WriteBehind {
 public:
  /// Starts the thread. The caller closes the descriptor after the end of this object. Throws
  /// std::exception if there can be no more threads, or not so much memory.
  WriteBehind(int descriptor, const WritePace& pace);
  /// Waits for a request under way. What Wait() has not waited for may be lost.
  ~WriteBehind() = default;
  WriteBehind(const WriteBehind&) = delete;
  WriteBehind& operator=(const WriteBehind&) = delete;

  /// Returns once the rest of the bytes fits into what is held, or false if a write has failed.
  bool Write(std::uint64_t address, const unsigned char* bytes, std::size_t size);

  /// Returns once everything is written, or false if a write has failed.
  bool Wait();

  struct Piece {
    std::uint64_t mAddress;
    const unsigned char* mBytes;
    std::size_t mSize;
  };
  /// The write that failed, after Wait() has returned false.
  Piece Failed() const { return Next(); }

  /// Returns the pace that was given, with the thread's own writes.
  WritePace Pace() const;

 private:
  static constexpr std::size_t sMostBytesHeld = 4 * 1024 * 1024;

  struct Range {
    std::uint64_t mAddress;
    std::size_t mSize;
  };

  Piece Next() const;
  void Work(const std::stop_token& stop);
  bool WriteNow(const Piece& piece) const;

  int mDescriptor;
  std::unique_ptr<unsigned char[]> mRing{new unsigned char[sMostBytesHeld]};
  mutable std::mutex mMutex;  // of all that follows
  std::condition_variable_any mChanged;
  std::deque<Range> mRanges;  // what is held, in the order of the ring
  std::size_t mBegin = 0;     // of the first range, in the ring
  std::size_t mSize = 0;      // of all ranges
  bool mHasFailed = false;
  WritePace mPace;
  std::jthread mThread;  // the last member, since it uses the others
};

}  // namespace Vexa
