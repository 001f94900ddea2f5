#pragma once

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "Utils/Containers/MyMap.hpp"
#include "Utils/Containers/MyVector.hpp"
#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/HDF5/H5AccessType.hpp"
#include "Utils/Store/H5_File.hpp"

#pragma GCC visibility push(default)

/// Keeps one H5_File per real path for the life of the process, so that what is appended outlives
/// the handles through which it was appended, and bounds what all of them hold together. There is
/// one instance, TheCachedH5FileHolder(); on abnormal termination it is asked to write everything,
/// be it by an exception of any type: linking the store installs the handler for that. Belongs to
/// one thread at a time, as the store does.
class CachedH5FileHolder : public CachedOutputObject {
 public:
  CachedH5FileHolder();
  /// Writes and closes all files, as PurgeCache does, but for those that are incomplete.
  ~CachedH5FileHolder() override;

  /// Set and return the limit in bytes for all caches together, which is 20000000 at start.
  void SetMaxCacheSize(std::uint64_t bytes) { mMaxCacheSize = bytes; }
  std::uint64_t MaxCacheSize() const { return mMaxCacheSize; }

  /// Sets how long files are waited for that other programs have open: all of them together when
  /// the process ends or the cache is purged, and one for which a handle is made, or an object got,
  /// that needs it open for writing; 20 seconds at start. After that a file that others only read
  /// is written nevertheless, and one that another program writes to is a failure. SIGTERM, where
  /// it has been asked to end the program at a safe point, ends the wait for a file that is opened.
  static void SetLockPatience(std::chrono::duration<double> patience) {
    Vexa_H5::SetLockPatience(patience);
  }

  /// Returns the file of that real path, made on first request. Lent; closed if it was known
  /// before. Fails if a handle on it is alive ("Consistency error.  h5-file should be closed ...").
  /// A file that is requested ReadOnly and holds data is written first, with a notice through
  /// MyErr; where another program has it open, the data wait. `staysReadable` is that of H5_File.
  H5_File& GetH5_File(const std::string& fullPath, H5AccessType access, int verbosity,
                      bool staysReadable = true);

  /// Writes the cache of the one file that holds most, if all files together hold more than the
  /// limit; warns if they hold more than twice the limit. A safe point for a flush that was asked
  /// for by a signal.
  /// What a file holds that another program has open waits, and the next one is written. Once more
  /// than twice the limit waits, a file that others only read is written nevertheless; one that
  /// another program writes to is waited for, and then is a failure.
  /// Without `warns`, nothing is said about twice the limit.
  void CheckForEmergencyWriteCache(bool warns = true);

  /// Writes the caches of all files, but for those that are incomplete or that another program has
  /// open. When a parallel job aborts, the latter are waited for during half of the time that its
  /// processes have; when SIGTERM ends the process, as long as at any other end, and what is locked
  /// after that is a failure. An object or file
  /// that cannot be written does not keep the others from being written; the first failure is
  /// thrown on.
  void WriteCache() const override;
  /// Does so for the file of that real path alone, if it is known. False if what it holds has to
  /// wait.
  bool WriteCache(const std::string& fullPath);
  /// Returns what that file holds.
  std::uint64_t CacheSize(const std::string& fullPath) const;
  /// Whether rows are left in memory after a write, because another program or thread is in the
  /// way.
  bool HoldsBack() const override { return H5_File::TotalCacheSize() != 0; }

  /// Writes everything, closes and forgets all files. Handles that are alive are of no use any
  /// more.
  void PurgeCache();
  /// Closes and forgets all files without writing what they still hold, and says what is lost.
  void GiveUp();

  /// Returns one record per write that the holder started: {files written, objects that held data,
  /// time steps, bytes, bytes that stay held in other files}.
  const std::vector<MyVector<unsigned long>>& WriteLog() const { return mWriteLog; }
  void ClearWriteLog() { mWriteLog.clear(); }

  /// Counts over all files what H5_File::Statistics counts in one.
  Vexa::CacheStatistics Statistics() const;
  /// The same, each number into a variable of its own.
  void Statistics(std::uint64_t& files, std::uint64_t& dirs, std::uint64_t& objects,
                  std::uint64_t& filesWithCache, std::uint64_t& objectsWithCache,
                  std::uint64_t& timeSteps, std::uint64_t& bytes) const;
  /// Nothing for a negative verbosity, one line for 0, each file's WriteInfo besides for more.
  void WriteInfo(std::ostream& os, int verbosity) const;

 private:
  using Clock = Vexa_H5::LockWait::Clock;

  static bool WriteFile(H5_File& file, Vexa_H5::LockWait wait);
  bool ExceedsTwiceTheLimit(std::uint64_t bytes) const { return bytes - bytes / 2 > mMaxCacheSize; }
  std::uint64_t WaitingBytes() const;
  H5_File* FullestFile(const std::vector<const H5_File*>& tried) const;
  bool Relieve(H5_File& file) const;
  void WriteAtLast(bool includesIncomplete);
  void WarnOfTwiceTheLimit() const;

  // WriteCache is const for those who ask for a flush; files change what they hold, not what they
  // are.
  mutable MyMap<std::string, H5_File> mFiles;  // by real path, in key order
  mutable std::vector<MyVector<unsigned long>> mWriteLog;
  std::uint64_t mMaxCacheSize = 20000000;
  Clock::time_point mNextTry{};  // of files that wait, for relief of memory
  mutable bool mHasWaitedAtLast = false;
};

CachedH5FileHolder& TheCachedH5FileHolder();

#pragma GCC visibility pop
