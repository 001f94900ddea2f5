#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "Utils/Containers/MyMap.hpp"
#include "Utils/Containers/MyVector.hpp"
#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/H5/H5AccessType.hpp"
#include "Utils/H5/H5_File.hpp"

/// Keeps one H5_File per real path for the life of the process, so that what is appended outlives
/// the handles through which it was appended, and bounds what all of them hold together. There is
/// one instance, TheCachedH5FileHolder(); on abnormal termination it is asked to write everything.
class CachedH5FileHolder : public CachedOutputObject {
 public:
  CachedH5FileHolder();
  /// Writes and closes all files.
  ~CachedH5FileHolder() override;

  /// The limit in bytes for all caches together; 20000000 at start.
  void SetMaxCacheSize(std::uint64_t bytes) { mMaxCacheSize = bytes; }
  std::uint64_t MaxCacheSize() const { return mMaxCacheSize; }

  /// Whether a write of the caches reaches the file for good, so that whatever then happens to the
  /// process, every later reader finds it there; true at start. A program whose files are of no use
  /// before they are whole, and which is faster without, sets it to false before it opens them.
  void SetFilesStayReadable(bool stayReadable) { mFilesStayReadable = stayReadable; }

  /// The file of that real path, made on first request. Lent; closed if it was known before.
  /// Fails if a handle on it is alive ("Consistency error.  h5-file should be closed ..."). A file
  /// that is requested ReadOnly and holds data is written first, with a notice through MyErr.
  H5_File& GetH5_File(const std::string& fullPath, H5AccessType access, int verbosity);

  /// Writes the cache of the one file that holds most, if all files together hold more than the
  /// limit; warns if they hold more than twice the limit. A safe point for a flush that was asked
  /// for by a signal.
  void CheckForEmergencyWriteCache();

  /// Writes the caches of all files, but for those that are incomplete.
  void WriteCache() const override;

  /// Writes everything, closes and forgets all files. Handles that are alive are of no use any
  /// more.
  void PurgeCache();

  /// One record per write that the holder started: {files written, objects that held data, time
  /// steps, bytes, bytes that stay held in other files}.
  const std::vector<MyVector<unsigned long>>& WriteLog() const { return mWriteLog; }
  void ClearWriteLog() { mWriteLog.clear(); }

  /// Sums over all files; see H5_File::Statistics.
  void Statistics(std::uint64_t& files, std::uint64_t& dirs, std::uint64_t& objects,
                  std::uint64_t& filesWithCache, std::uint64_t& objectsWithCache,
                  std::uint64_t& timeSteps, std::uint64_t& bytes) const;
  /// Nothing for a negative verbosity, one line for 0, each file's WriteInfo besides for more.
  void WriteInfo(std::ostream& os, int verbosity) const;

 private:
  static void WriteFile(H5_File& file);
  void WarnOfTwiceTheLimit() const;

  std::uint64_t mTotalCacheSize = 0;  // of all files; before them, for they count in it to the end

  // WriteCache is const for those who ask for a flush; files change what they hold, not what they
  // are.
  mutable MyMap<std::string, H5_File> mFiles;  // by real path, in key order
  mutable std::vector<MyVector<unsigned long>> mWriteLog;
  std::uint64_t mMaxCacheSize = 20000000;
  bool mFilesStayReadable = true;
};

CachedH5FileHolder& TheCachedH5FileHolder();
