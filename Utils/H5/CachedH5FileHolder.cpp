#include "Utils/H5/CachedH5FileHolder.hpp"

#include <iostream>
#include <sstream>

#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/H5/H5_Library.hpp"
#include "Utils/H5/InsideStore.hpp"
#include "Utils/Process/Formatting.hpp"

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
  if (!InsideStore::TakeForGood()) {
    Vexa_H5::EndProcess(-1);
  }
  ClearWriteLog();
  mFiles.clear();
  MyAbort_LastOutputWritten();
}

CachedH5FileHolder& TheCachedH5FileHolder() {
  static CachedH5FileHolder holder;
  return holder;
}

H5_File& CachedH5FileHolder::GetH5_File(const std::string& fullPath, H5AccessType access,
                                        int verbosity) {
  const InsideStore inside;
  H5_File* ptr = mFiles.Find(fullPath);
  if (ptr == nullptr) {
    mFiles.Insert(fullPath, fullPath, access, verbosity, mFilesStayReadable);
    mFiles.Sort();
    H5_File& file = mFiles[fullPath];
    file.CountIn(mTotalCacheSize);
    return file;
  }
  const std::string noDataset;
  const ReportContext context(noDataset, fullPath);
  const char* message =
      "Consistency error.  h5-file should be closed when creatingCachedH5File.\n"
      "Do you use **multiple** instances of CachedH5File to access the same file?";
  REQUIRE(!ptr->IsFileOpen(), message);
  REQUIRE(!ptr->HasHandle(), message);
  if (access == ReadWrite) {
    ptr->SetAccess(ReadWrite);
    return *ptr;
  }
  if (ptr->CummulativeCacheSize() != 0) {
    MyErr << "CachedH5File(" << fullPath << ", ReadOnly):\n"
          << "Write non-empty cache now,  before opening ReadOnly.\n";
    ptr->SetAccess(ReadWrite);
    ptr->OpenFile();
    ptr->WriteCache();
    // Closed while the access still says that it was written to.
    ptr->CloseFile();
  }
  ptr->SetAccess(ReadOnly);
  return *ptr;
}

void CachedH5FileHolder::CheckForEmergencyWriteCache() {
  const InsideStore inside;
  CachedOutput::FlushIfRequested();
  const std::uint64_t total = mTotalCacheSize;
  if (total <= mMaxCacheSize) {
    return;
  }
  if (total / 2 > mMaxCacheSize || (total / 2 == mMaxCacheSize && total % 2 != 0)) {
    WarnOfTwiceTheLimit();
  }
  H5_File* largest = nullptr;
  for (auto [path, file] : mFiles) {
    if (largest == nullptr || file.CummulativeCacheSize() > largest->CummulativeCacheSize()) {
      largest = &file;
    }
  }
  REQUIRE(largest != nullptr, "Internal error: " << total << " bytes held without a file");
  std::uint64_t objectsWithCache = 0;
  std::uint64_t timeSteps = 0;
  std::uint64_t bytes = 0;
  largest->Root()->CacheStatistics(objectsWithCache, timeSteps, bytes);
  mWriteLog.push_back({1, objectsWithCache, timeSteps, bytes, total - bytes});
  WriteFile(*largest);
}

void CachedH5FileHolder::WriteFile(H5_File& file) {
  file.WriteCache();
  // A file that nobody has a handle on would stay open, and the next handle on it be refused.
  if (!file.HasHandle()) {
    file.CloseFile();
  }
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
  if (MyAbortCalled_UncleanShutdown() && !InsideStore::TakeForGood()) {
    return;
  }
  const InsideStore inside;
  std::uint64_t written = 0;
  std::uint64_t objectsWithCache = 0;
  std::uint64_t timeSteps = 0;
  std::uint64_t bytes = 0;
  for (auto [path, file] : mFiles) {
    if (file.IsIncomplete()) {
      continue;
    }
    const std::uint64_t before = bytes;
    file.Root()->CacheStatistics(objectsWithCache, timeSteps, bytes);
    written += bytes != before ? 1 : 0;
    WriteFile(file);
  }
  if (written != 0) {
    mWriteLog.push_back({written, objectsWithCache, timeSteps, bytes, 0});
  }
}

void CachedH5FileHolder::PurgeCache() {
  const InsideStore inside;
  // Written before the files are destroyed: a failure ends in a report, not in a destructor.
  for (auto [path, file] : mFiles) {
    file.WriteCache();
    file.CloseFile();
  }
  mFiles.clear();
}

void CachedH5FileHolder::Statistics(std::uint64_t& files, std::uint64_t& dirs,
                                    std::uint64_t& objects, std::uint64_t& filesWithCache,
                                    std::uint64_t& objectsWithCache, std::uint64_t& timeSteps,
                                    std::uint64_t& bytes) const {
  const InsideStore inside;
  files = dirs = objects = filesWithCache = objectsWithCache = timeSteps = bytes = 0;
  for (const auto& [path, file] : mFiles) {
    std::uint64_t fileDirs = 0;
    std::uint64_t fileObjects = 0;
    std::uint64_t fileObjectsWithCache = 0;
    std::uint64_t fileSteps = 0;
    std::uint64_t fileBytes = 0;
    file.Statistics(fileDirs, fileObjects, fileObjectsWithCache, fileSteps, fileBytes);
    ++files;
    dirs += fileDirs;
    objects += fileObjects;
    filesWithCache += fileBytes != 0 ? 1 : 0;
    objectsWithCache += fileObjectsWithCache;
    timeSteps += fileSteps;
    bytes += fileBytes;
  }
}

void CachedH5FileHolder::WriteInfo(std::ostream& os, int verbosity) const {
  const InsideStore inside;
  if (verbosity < 0) {
    return;
  }
  os << "CachedH5FileHolder holds " << mFiles.size() << " h5-files with "
     << DoubleToStringDecimal(static_cast<double>(mTotalCacheSize) / 1e6, 5) << " MB cached data\n";
  if (verbosity != 0) {
    for (const auto& [path, file] : mFiles) {
      file.WriteInfo(os, verbosity);
    }
  }
}
