#include "Utils/Store/CachedH5FileHolder.hpp"

#include <algorithm>
#include <iostream>
#include <optional>
#include <sstream>
#include <tuple>
#include <utility>

#include "Utils/ErrorHandling/FirstFailure.hpp"
#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/ParallelRuntime.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/Library.hpp"
#include "Utils/Process/Formatting.hpp"
#include "Utils/Process/Printable.hpp"
#include "Utils/Store/InsideStore.hpp"

using Vexa_H5::LockWait;

namespace {

void SayWhatIsLost(const H5_File& file) {
  if (file.CummulativeCacheSize() != 0) {
    MyErr << "File '" << Vexa::Printable(file.Filename()) << "' lacks "
          << file.CummulativeCacheSize() << " bytes that waited for another program to close it\n";
  }
}

// Returns until when a flush waits for files that other programs have open. It waits only if the
// process ends after it.
std::optional<LockWait::Clock::time_point> EndOfWait() {
  using Clock = LockWait::Clock;
  if (!MyAbortCalled_UncleanShutdown()) {
    return CachedOutput::IsEndingBySignal() ? std::optional(LockWait::Patient().mUntil)
                                            : std::nullopt;
  }
  const Vexa::ParallelRuntime& runtime = Vexa::ParallelRuntime::Instance();
  if (!runtime.IsInitialized() || runtime.NumberOfProcesses() < 2) {
    return std::nullopt;
  }
  const std::chrono::duration<double> half(Vexa::MyAbort_SleepSeconds() / 2.0);
  const auto wait = std::min(half, Vexa_H5::LockPatience());
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(wait);
}

}  // namespace

CachedH5FileHolder::CachedH5FileHolder() {
  // The holder writes when the process exits; the library must not have shut down by then.
  Vexa_H5::ArrangeLibraryEnd();
  Vexa_H5::SetOnLibraryEnd([] {
    for (auto [path, file] : TheCachedH5FileHolder().mFiles) {
      file.DropIds();
    }
  });
}

CachedH5FileHolder::~CachedH5FileHolder() {
  // What fails from here on must not be answered by asking this object to write again.
  Unregister();
  Vexa_H5::SetOnLibraryEnd(nullptr);
  if (!Vexa::InsideStore::TakeForGood()) {
    Vexa_H5::EndProcess(-1);
  }
  ClearWriteLog();
  WriteAtLast(false);
  mFiles.clear();
  Vexa::MyAbort_LastOutputWritten();
}

CachedH5FileHolder& TheCachedH5FileHolder() {
  static CachedH5FileHolder holder;
  return holder;
}

H5_File& CachedH5FileHolder::GetH5_File(const std::string& fullPath, H5AccessType access,
                                        int verbosity, bool staysReadable) {
  const Vexa::InsideStore inside;
  H5_File* ptr = mFiles.Find(fullPath);
  if (ptr == nullptr) {
    mFiles.Insert(fullPath, fullPath, access, verbosity, staysReadable);
    mFiles.Sort();
    return mFiles[fullPath];
  }
  const Vexa::ReportContext context(fullPath);
  const char* message =
      "Consistency error.  h5-file should be closed when creatingCachedH5File.\n"
      "Do you use **multiple** instances of CachedH5File to access the same file?";
  REQUIRE(!ptr->IsFileOpen(), Vexa::Verbatim(message));
  REQUIRE(!ptr->HasHandle(), Vexa::Verbatim(message));
  if (access == ReadWrite) {
    ptr->SetAccess(ReadWrite);
    ptr->CreateIfMissing();
    return *ptr;
  }
  if (ptr->CummulativeCacheSize() != 0) {
    MyErr << "CachedH5File(" << Vexa::Printable(fullPath) << ", ReadOnly):\n"
          << "Write non-empty cache now,  before opening ReadOnly.\n";
    WriteFile(*ptr, LockWait::None());
  }
  ptr->SetAccess(ReadOnly);
  return *ptr;
}

void CachedH5FileHolder::CheckForEmergencyWriteCache(bool warns) {
  const Vexa::InsideStore inside;
  CachedOutput::FlushIfRequested();
  const std::uint64_t total = H5_File::TotalCacheSize();
  if (total <= mMaxCacheSize) {
    return;
  }
  const Clock::time_point begin = Clock::now();
  std::vector<const H5_File*> tried;
  while (H5_File* const file = FullestFile(tried)) {
    if (warns && tried.empty() && ExceedsTwiceTheLimit(total)) {
      WarnOfTwiceTheLimit();
    }
    if (Relieve(*file)) {
      break;
    }
    tried.push_back(file);
  }
  if (!tried.empty()) {
    // However many files wait, and however often handles go, trying them takes little of the time.
    const Clock::time_point now = Clock::now();
    mNextTry = now + std::clamp<Clock::duration>(50 * (now - begin), std::chrono::milliseconds(50),
                                                 std::chrono::seconds(1));
  }
}

std::uint64_t CachedH5FileHolder::WaitingBytes() const {
  std::uint64_t bytes = 0;
  for (const auto& [path, file] : mFiles) {
    bytes += file.IsWaiting() ? file.CummulativeCacheSize() : 0;
  }
  return bytes;
}

// The file to write next, of those that were not tried yet; null if there is none for which it is
// worth it.
H5_File* CachedH5FileHolder::FullestFile(const std::vector<const H5_File*>& tried) const {
  const bool triesWaiting = Clock::now() >= mNextTry;
  // While what waits exceeds the limit on its own, small files would be written row by row.
  const bool isDueToOthers = H5_File::TotalCacheSize() - WaitingBytes() <= mMaxCacheSize;
  const std::uint64_t least = isDueToOthers ? mMaxCacheSize / 20 : 0;
  H5_File* fullest = nullptr;
  std::uint64_t most = 0;
  for (auto [path, file] : mFiles) {
    const std::uint64_t size = file.CummulativeCacheSize();
    const bool isCandidate = file.IsWaiting() ? triesWaiting : size >= least;
    if (size > most && isCandidate && std::find(tried.begin(), tried.end(), &file) == tried.end()) {
      fullest = &file;
      most = size;
    }
  }
  return fullest;
}

bool CachedH5FileHolder::Relieve(H5_File& file) const {
  const Vexa::CacheStatistics data = file.Statistics();
  const std::uint64_t others = H5_File::TotalCacheSize() - data.mBytes;
  bool isWritten = WriteFile(file, LockWait::None());
  if (!isWritten && ExceedsTwiceTheLimit(WaitingBytes())) {
    isWritten = WriteFile(file, LockWait::PassReaders());
    if (!isWritten && !Vexa_H5::SharedLock(file.Filename()).IsTaken()) {
      isWritten = WriteFile(file, LockWait::Patient());
    }
  }
  if (isWritten) {
    mWriteLog.push_back({1, data.mObjectsWithCache, data.mTimeSteps, data.mBytes, others});
  }
  return isWritten;
}

bool CachedH5FileHolder::WriteFile(H5_File& file, LockWait wait) {
  FirstFailure failure;
  bool isWritten = false;
  const bool isFine = failure.Try([&] { isWritten = file.WriteCache(std::move(wait)); });
  // A file that nobody has a handle on would stay open, and the next handle on it be refused.
  if (!file.HasHandle() && (isFine || !file.IsIncomplete())) {
    failure.Try([&file] { file.CloseFile(); });
  }
  failure.Throw();
  return isWritten;
}

void CachedH5FileHolder::WarnOfTwiceTheLimit() const {
  std::ostringstream info;
  WriteInfo(info, 2);
  MyErr << "CachedeH5FileHolder: GlobalCacheSize exceeds **two** times\n"
        << "the specified limit " << mMaxCacheSize / 1000000 << "MB.  Cached files:\n"
        << info.str() << "\n"
        << "Please note that the h5-cachesize is only checked when a\n"
        << "CachedH5File goes out of scope.  So you are likely writing\n"
        << "a lot of data while keeping the CachedH5File around.  \n"
        << "Consider to let the CachedH5File go out of scope, and re-\n"
        << "create it when needed (this is an inexpensive operation).\n";
}

void CachedH5FileHolder::WriteCache() const {
  if (MyAbortCalled_UncleanShutdown() && !Vexa::InsideStore::TakeForGood()) {
    return;
  }
  const Vexa::InsideStore inside;
  Vexa::CacheStatistics written;
  FirstFailure failure;
  const auto write = [&](H5_File& file, LockWait wait) {
    const bool holdsData = file.CummulativeCacheSize() != 0;
    const auto withFile = holdsData ? file.Statistics(written) : written;
    failure.Try([&] { written = WriteFile(file, std::move(wait)) ? withFile : written; });
  };
  for (auto [path, file] : mFiles) {
    if (!file.IsIncomplete()) {
      write(file, LockWait::None());
    }
  }
  if (const auto end = EndOfWait()) {
    // What cannot be written then is a failure, except on the way down after one.
    const bool mayStayLocked = MyAbortCalled_UncleanShutdown();
    mHasWaitedAtLast = !mayStayLocked;
    for (auto [path, file] : mFiles) {
      if (file.IsWaiting() && !file.IsIncomplete()) {
        failure.Try([&file] { file.CloseFile(); });
        write(file, LockWait::Until(*end, mayStayLocked));
        SayWhatIsLost(file);
      }
    }
  }
  if (written.mFiles != 0) {
    mWriteLog.push_back(
        {written.mFiles, written.mObjectsWithCache, written.mTimeSteps, written.mBytes, 0});
  }
  failure.Throw();
}

bool CachedH5FileHolder::WriteCache(const std::string& fullPath) {
  const Vexa::InsideStore inside;
  H5_File* const file = mFiles.Find(fullPath);
  if (file == nullptr || file->CummulativeCacheSize() == 0) {
    return true;
  }
  const Vexa::CacheStatistics data = file->Statistics();
  const bool isWritten = WriteFile(*file, LockWait::None());
  if (isWritten) {
    const std::uint64_t others = H5_File::TotalCacheSize();
    mWriteLog.push_back({1, data.mObjectsWithCache, data.mTimeSteps, data.mBytes, others});
  }
  return isWritten;
}

std::uint64_t CachedH5FileHolder::CacheSize(const std::string& fullPath) const {
  const Vexa::InsideStore inside;
  const H5_File* const file = mFiles.Find(fullPath);
  return file == nullptr ? 0 : file->CummulativeCacheSize();
}

void CachedH5FileHolder::PurgeCache() {
  const Vexa::InsideStore inside;
  // The files are written before they are destroyed, so that a failure ends in a report, not in a
  // destructor.
  WriteAtLast(true);
  mFiles.clear();
}

void CachedH5FileHolder::GiveUp() {
  const Vexa::InsideStore inside;
  for (auto [path, file] : mFiles) {
    SayWhatIsLost(file);
    file.CloseSilently();
    file.Root()->DropCache();
  }
  mFiles.clear();
}

// Writes and closes the files that can be written at once, then those that others have open. The
// first failure is thrown when all had their turn.
void CachedH5FileHolder::WriteAtLast(bool includesIncomplete) {
  FirstFailure failure;
  const auto write = [&](H5_File& file, LockWait wait) {
    const bool isFine = failure.Try([&] { file.WriteCache(std::move(wait)); });
    if (file.IsWaiting() || (!isFine && file.IsIncomplete())) {
      return;
    }
    // What follows from the failure that ends the process is not told after it.
    FirstFailure consequence;
    const bool isConsequence = file.HasFailed() && MyAbortCalled_UncleanShutdown();
    (isConsequence ? consequence : failure).Try([&file] { file.CloseFile(); });
  };
  for (auto [path, file] : mFiles) {
    if (includesIncomplete || !file.IsIncomplete()) {
      write(file, LockWait::None());
    }
  }
  const bool isAbort = MyAbortCalled_UncleanShutdown();
  const Clock::time_point end =
      isAbort && mHasWaitedAtLast ? Clock::now() : LockWait::Patient().mUntil;
  for (auto [path, file] : mFiles) {
    if (!file.IsWaiting() || (file.IsIncomplete() && !includesIncomplete)) {
      continue;
    }
    mHasWaitedAtLast = true;
    failure.Try([&file] { file.CloseFile(); });  // somebody may still have it open for reading
    write(file, LockWait::Until(end, isAbort));
    if (isAbort) {
      SayWhatIsLost(file);
    }
  }
  failure.Throw();
}

Vexa::CacheStatistics CachedH5FileHolder::Statistics() const {
  const Vexa::InsideStore inside;
  Vexa::CacheStatistics statistics;
  for (const auto& [path, file] : mFiles) {
    statistics = file.Statistics(statistics);
  }
  return statistics;
}

void CachedH5FileHolder::Statistics(std::uint64_t& files, std::uint64_t& dirs,
                                    std::uint64_t& objects, std::uint64_t& filesWithCache,
                                    std::uint64_t& objectsWithCache, std::uint64_t& timeSteps,
                                    std::uint64_t& bytes) const {
  const auto [f, d, o, filesC, objectsC, t, b] = Statistics();
  std::tie(files, dirs, objects, filesWithCache, objectsWithCache, timeSteps, bytes) =
      std::tie(f, d, o, filesC, objectsC, t, b);
}

void CachedH5FileHolder::WriteInfo(std::ostream& os, int verbosity) const {
  const Vexa::InsideStore inside;
  if (verbosity < 0) {
    return;
  }
  os << "CachedH5FileHolder holds " << mFiles.size() << " h5-files with "
     << DoubleToStringDecimal(static_cast<double>(H5_File::TotalCacheSize()) / 1e6, 5)
     << " MB cached data\n";
  if (verbosity != 0) {
    for (const auto& [path, file] : mFiles) {
      file.WriteInfo(os, verbosity);
    }
  }
}
