#include "Executables/Series/Progress.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/Process/Formatting.hpp"

namespace {

constexpr std::chrono::milliseconds sInterval(100);

void WriteToTerminal(std::string_view text) {
  // What does not get there is not missed.
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

void EraseLine() {
  WriteToTerminal("\r\x1b[K");
}

bool CanErase() {
  const char* terminal = std::getenv("TERM");
  return isatty(STDERR_FILENO) == 1 && terminal != nullptr && std::string_view(terminal) != "dumb";
}

// A longer line would wrap, and could not be erased.
std::size_t LineWidth() {
  winsize size{};
  const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return (isKnown ? size.ws_col : 80) - 1;
}

}  // namespace

std::string ProgressText(const std::string& stage, const std::string& counted, std::uint64_t number,
                         std::uint64_t count, std::uint64_t bytes, std::uint64_t totalBytes,
                         double seconds) {
  const auto size = [](double value) { return BytesToAscii(static_cast<std::int64_t>(value), 7); };
  std::string text =
      stage + ": " + counted + " " + std::to_string(number) + " of " + std::to_string(count);
  // Files hold more than values, but not all values need be read: the sum is an estimate.
  const std::uint64_t done = std::min(bytes, totalBytes);
  if (done == 0) {
    return text;
  }
  text += ", " + size(static_cast<double>(done)) + " of " + size(static_cast<double>(totalBytes));
  if (seconds >= 0.5) {
    const double rate = static_cast<double>(done) / seconds;
    text += ", " + size(rate) + "/s";
    const double left = static_cast<double>(totalBytes - done) / rate;
    text += left < 1 ? ", hardly any time left" : ", " + TimeIntervalToAscii(left, 6) + " left";
  }
  return text;
}

Progress::Progress(bool isWanted, std::uint64_t count, std::uint64_t totalBytes,
                   std::string counted)
    : mIsShown(isWanted && CanErase() && std::getenv("VEXA_NO_PROGRESS") == nullptr),
      mCounted(std::move(counted)),
      mCount(count),
      mTotalBytes(totalBytes),
      mStart(Clock::now()),
      mNextUpdate(mStart) {
  if (mIsShown) {
    Vexa::SetBeforeMyErr(EraseLine);
  }
}

Progress::~Progress() {
  if (mIsShown) {
    EraseLine();
    Vexa::SetBeforeMyErr(nullptr);
  }
}

void Progress::Next(const std::string& stage) {
  mStage = stage;
  ++mNumber;
  Update();
}

void Progress::Advance(std::uint64_t bytes, std::uint64_t done, std::uint64_t all) {
  if (all > 0) {
    mBytes += static_cast<double>(bytes) * static_cast<double>(done) / static_cast<double>(all);
  }
  Update();
}

void Progress::Update() {
  const Clock::time_point now = Clock::now();
  if (!mIsShown || now < mNextUpdate) {
    return;
  }
  mNextUpdate = now + sInterval;
  const std::chrono::duration<double> elapsed = now - mStart;
  const std::string text =
      ProgressText(mStage, mCounted, mNumber, mCount, static_cast<std::uint64_t>(mBytes),
                   mTotalBytes, elapsed.count());
  WriteToTerminal("\r" + text.substr(0, LineWidth()) + "\x1b[K");
}
