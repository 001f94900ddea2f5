#include "Utils/Store/H5_File.hpp"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <ostream>
#include <tuple>
#include <utility>

#include "Utils/ErrorHandling/FirstFailure.hpp"
#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/CommittingDriver.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/HDF5/Library.hpp"
#include "Utils/HDF5/StoredChunks.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Process/Printable.hpp"
#include "Utils/Store/FailedWrites.hpp"

namespace {

void CountNodes(const H5_Node* ptr, Vexa::CacheStatistics& statistics) {
  if (ptr->Type() == "dir") {
    ++statistics.mDirs;
    for (const auto& [name, child] : ptr->Children()) {
      CountNodes(&child, statistics);
    }
    return;
  }
  REQUIRE(ptr->Children().empty(), "Inconsistency.  non-directory with children");
  ++statistics.mObjects;
  statistics.mObjectsWithCache += ptr->SizeOfCache() == 0 ? 0 : 1;
  statistics.mTimeSteps += ptr->NTimeStepsCached();
  statistics.mBytes += ptr->SizeOfCache();
}

}  // namespace

H5_File::H5_File(const std::string& fullPath, H5AccessType access, int verbosity,
                 bool staysReadable)
    : mFilename(fullPath),
      mTrace(verbosity),
      mAtype(access),
      mStaysReadable(staysReadable),
      mIsUnfinished(access == ReadWrite && !staysReadable) {
  Vexa_H5::LockWait wait = Vexa_H5::LockWait::Patient();
  try {
    Open(mAtype, wait);
    mIsNew = wait.mIsNew;
    if (mIsNew) {
      Flush();
    }
  } catch (...) {
    std::optional<Vexa::FileDescriptor> created;
    // The first failure is the one to report; after another one the file stays.
    FirstFailure().Try([&] {
      if (IsFileOpen() && wait.mIsCreated) {
        created.emplace(Hold());
      }
    });
    CloseSilently();
    if (created && created->HasName(mFilename)) {
      // It holds nothing, and may be less than a file that opens.
      std::error_code ignored;
      std::filesystem::remove(mFilename, ignored);
    }
    throw;
  }
}

H5_File::~H5_File() {
  if (mpHandle != nullptr) {
    *mpHandle = nullptr;
  }
  if (!IsIncomplete()) {
    WriteCache();
    CloseFile();
  }
  sTotalCacheSize -= CummulativeCacheSize();
}

void H5_File::OpenFile() {
  Vexa_H5::LockWait wait = Vexa_H5::LockWait::Patient();
  Open(mAtype, wait);
}

void H5_File::CreateIfMissing() {
  // An empty file is what a creation leaves that was interrupted.
  if (!FileExists(mFilename) || Vexa::IsEmptyFile(mFilename)) {
    OpenFile();
    mIsNew = true;
  }
}

void H5_File::StartAnew() {
  if (CummulativeCacheSize() != 0) {
    MyErr << "File '" << mFilename << "' was removed; what was appended to it since it was last "
          << "written goes into a new one\n";
  }
  mUnflushed.clear();
  mpRoot->RolledBack(true);
  mHasLost = true;
  Flush();
}

void H5_File::OpenToRead() {
  Vexa_H5::LockWait once = Vexa_H5::LockWait::None();
  if (mAtype == ReadWrite && !Open(ReadWrite, once) && Vexa_H5::SharedLock(mFilename).IsTaken()) {
    Open(ReadOnly, once);
  } else if (!IsFileOpen()) {
    OpenFile();
  }
}

bool H5_File::IsIncomplete() const {
  return mIsUnfinished || mIsWriting || (mCannotOpen && MyAbortCalled_UncleanShutdown());
}

bool H5_File::Open(H5AccessType access, Vexa_H5::LockWait& wait) {
  REQUIRE(!IsFileOpen(), "Internal error: " << mFilename << " is open already");
  const Vexa::ReportContext context(mFilename);
  const Vexa::ReportAs label("H5_File");
  Vexa_H5::LibraryLife();
  if (access == ReadWrite && !mStaysReadable) {
    // What has its name later need not be what was created.
    REQUIRE(mpRoot==nullptr, "Internal error: " << mFilename << " is opened for a second time");
    mFile_id = Vexa_H5::CreateFile(mFilename, mTrace.Verbosity(), mStaysReadable);
    wait.mIsNew = wait.mIsCreated = true;
  } else {
    mFile_id = Vexa_H5::OpenFile(mFilename, access, mTrace.Verbosity(), mStaysReadable, &wait);
  }
  mHasWaited = mHasWaited || wait.mHasWaited;
  if (!IsFileOpen()) {
    return false;
  }
  Vexa_H5::CountOpenFiles(1);
  mIsOpenForWriting = access == ReadWrite;
  mSharedLock = std::move(wait.mSharedLock);
  const std::string stamp = mAtype == ReadOnly ? Hold().Stamp() : "";
  mStamp = mpRoot == nullptr ? stamp : mStamp;
  mHasKnownAddresses = !stamp.empty() && stamp == mStamp;
  if (mpRoot == nullptr) {
    // An object and its link take some bytes of the file, unless the link leads to another file;
    // and a new file may grow.
    const std::uint64_t harmless = 50000;
    mMostNodes = mAtype == ReadOnly ? std::max(Vexa_H5::FileSizeOf(mFile_id) / 32, harmless)
                                    : ~std::uint64_t{0};
    mpRoot = std::make_unique<H5_Node>(*this, mFile_id, mTrace.Verbosity());
    mHasWaited = false;  // nothing was known before
  } else if (wait.mIsNew) {
    StartAnew();
  }
  return true;
}

bool H5_File::Contains(const H5_Node& node) const {
  // The library asks for each link on the way.
  return node.Parent() == nullptr ||
         (Contains(*node.Parent()) &&
          H5Lexists(mFile_id, node.FullName().c_str(), H5P_DEFAULT) > 0);
}

void H5_File::CountNode() {
  ++mNodes;
  REQUIRE(mNodes<=mMostNodes, "File " << mFilename
          << " leads to more objects than it has room for; "
          << "its links go round in circles");
}

Vexa::FileDescriptor H5_File::Hold() const {
  void* descriptor = nullptr;
  const herr_t err = H5Fget_vfd_handle(mFile_id, H5P_DEFAULT, &descriptor);
  REQUIRE(err>=0, "H5Fget_vfd_handle failed");
  return Vexa::FileDescriptor(*static_cast<int*>(descriptor));
}

void H5_File::CloseNodes(const H5_Node& top) {
  const auto isBelow = [&top](const H5_Node* node) {
    while (node != nullptr && node != &top) {
      node = node->Parent();
    }
    return node != nullptr;
  };
  // The walk goes backwards, so that members are closed before their groups. Usually what is to be
  // closed was opened last; the walk stops at the node itself, below which nothing was opened
  // earlier.
  for (std::size_t i = mOpenNodes.size(); i-- > 0;) {
    const H5_Node* node = mOpenNodes[i];
    if (!isBelow(node)) {
      continue;
    }
    mOpenNodes.erase(mOpenNodes.begin() + static_cast<std::ptrdiff_t>(i));
    if (node->IsObjectOpen()) {
      node->Object().CloseObject();
    }
    if (node == &top) {
      break;
    }
  }
}

void H5_File::CloseFile() {
  if (!IsFileOpen()) {
    return;
  }
  const Vexa::ReportContext context(mFilename);
  mpRoot->CloseObject();
  // An identifier that is still open would keep the file open without a word, unflushed.
  // After a failure the calls that were interrupted have theirs open, which nobody can mend.
  const bool isChecked = mIsOpenForWriting && !MyAbortCalled_UncleanShutdown();
  // Looking at datatypes takes long, since the library has many of its own.
  constexpr unsigned kinds = H5F_OBJ_FILE | H5F_OBJ_DATASET | H5F_OBJ_GROUP | H5F_OBJ_ATTR;
  const ssize_t leaked = isChecked ? H5Fget_obj_count(mFile_id, kinds | H5F_OBJ_LOCAL) - 1 : 0;
  REQUIRE(leaked==0, "Internal error: " << leaked << " identifiers open while closing the file");
  herr_t err = mIsOpenForWriting && mStaysReadable ? H5Fflush(mFile_id, H5F_SCOPE_LOCAL) : 0;
  const bool isRolledBack = err < 0;
  if (isRolledBack) {
    // A close that fails would leave the file open in the library.
    RollBack();
  } else {
    const hid_t file_id = std::exchange(mFile_id, -1);
    err = mTrace(5, H5Fclose(file_id), "H5Fclose(", file_id, ")");
    SetFlushed();
  }
  mSharedLock = {};
  const char* const isLost =
      "\nThe file stays as it was before; what was appended to it since is lost";
  REQUIRE(err==0, "H5Fclose returned err=" << err << Vexa::Verbatim(isRolledBack ? isLost : ""));
  Vexa_H5::CountOpenFiles(-1);
}

void H5_File::DropIds() {
  for (const H5_Node* node : mOpenNodes) {
    node->Object().DropIds();
  }
  mOpenNodes.clear();
  mSharedLock = {};
  if (IsFileOpen()) {
    mFile_id = -1;
    Vexa_H5::CountOpenFiles(-1);
  }
}

void H5_File::CloseSilently(bool discardsUnflushed) noexcept {
  const Vexa_H5::MuteH5Errors muted;
  // If there is no root, the nodes were never finished, and are gone.
  for (std::size_t i = mpRoot == nullptr ? 0 : mOpenNodes.size(); i-- > 0;) {
    // The failure that led here has been reported, or is about to be.
    FirstFailure().Try([node = mOpenNodes[i]] {
      if (node->IsObjectOpen()) {
        node->Object().CloseObject();
      }
    });
  }
  mOpenNodes.clear();
  mIsWriting = false;
  if (!IsFileOpen()) {
    return;
  }
  constexpr unsigned objects = H5F_OBJ_ALL & ~static_cast<unsigned>(H5F_OBJ_FILE);
  hid_t left = -1;
  while (H5Fget_obj_ids(mFile_id, objects | H5F_OBJ_LOCAL, 1, &left) > 0 && H5Idec_ref(left) >= 0) {
  }
  std::optional<Vexa_H5::DiscardUnflushed> discard;
  if (mIsOpenForWriting && mStaysReadable &&
      (discardsUnflushed || H5Fflush(mFile_id, H5F_SCOPE_LOCAL) < 0)) {
    discard.emplace();
  } else {
    SetFlushed();
  }
  if (H5Fclose(std::exchange(mFile_id, -1)) >= 0) {
    Vexa_H5::CountOpenFiles(-1);
  }
  mSharedLock = {};
  if (discard && mpRoot != nullptr) {
    mUnflushed.clear();
    mpRoot->RolledBack(false);
    mHasLost = true;
  }
}

void H5_File::CloseObjectsInGroups() {
  for (std::size_t i = mOpenNodes.size(); i-- > 0;) {
    const H5_Node& node = *mOpenNodes[i];
    if (node.Type() != "dir") {
      node.CloseObject();
    }
  }
}

void H5_File::CloseGroupsApartFrom(const H5_Node& node) {
  const bool onlyGroups = std::all_of(mOpenNodes.begin(), mOpenNodes.end(),
                                      [](const H5_Node* open) { return open->Type() == "dir"; });
  if (onlyGroups && node.Parent() != nullptr && !node.Parent()->IsObjectOpen()) {
    mpRoot->CloseObject();
  }
}

bool H5_File::WriteCache(Vexa_H5::LockWait wait) {
  const std::uint64_t size = CummulativeCacheSize();
  if (size == 0) {
    mIsWaiting = mHasWaited = false;
    return true;
  }
  // What waits was appended before the file was requested ReadOnly.
  if (!mIsWaiting) {
    REQUIRE(mAtype==ReadWrite, "Consistency error: Called WriteCache() on ReadOnly file "
            << mFilename << "\nwith a non-zero cache size " << size);
  }
  if (IsFileOpen() && !mIsOpenForWriting) {
    return false;
  }
  if (!BeginWriting(std::move(wait))) {
    KeepWaiting();
    return false;
  }
  if (std::exchange(mHasLost, false)) {
    mpRoot->HoldAgain();
  }
  Vexa::FailedWrites failed;
  mpRoot->WriteCache(failed);
  // What was written of the others counts, whatever failed.
  const bool staysOpen = HasHandle() && mAtype == ReadWrite;
  if (staysOpen && !failed.IsHopeless() && !failed.Try("/", [this] { Flush(); })) {
    failed.SetHopeless();
  }
  mIsWriting = failed.IsHopeless();
  mIsWaiting = mHasWaited = false;
  mHasFailed = mHasFailed || !failed.IsEmpty();
  if (failed.IsHopeless() && mStaysReadable) {
    RollBack();
  } else if (mAtype == ReadOnly) {
    CloseFile();
  }
  failed.Throw(mFilename);
  return true;
}

void H5_File::RollBack() {
  CloseSilently(true);
  mpRoot->DropCache();
}

void H5_File::SetFlushed() {
  for (H5_Object* object : mUnflushed) {
    object->Flushed();
  }
  mUnflushed.clear();
}

void H5_File::Flush() {
  if (!mStaysReadable) {
    return;
  }
  const Vexa::ReportContext context(mFilename);
  const herr_t err =
      mTrace(5, H5Fflush(mFile_id, H5F_SCOPE_LOCAL), "H5Fflush(", mFile_id, ", H5F_SCOPE_LOCAL)");
  REQUIRE(err>=0, "H5Fflush failed");
  SetFlushed();
}

bool H5_File::BeginWriting(Vexa_H5::LockWait wait) {
  mIsWriting = IsFileOpen();
  if (!mIsWriting) {
    mCannotOpen = true;  // such a file stays as good as it was
    mIsWriting = Open(ReadWrite, wait);
    mCannotOpen = false;
  }
  return mIsWriting;
}

void H5_File::KeepWaiting() {
  if (!mIsWaiting) {
    MyErr << "File '" << Vexa::Printable(mFilename) << "' is open in another program; "
          << CummulativeCacheSize() << " bytes wait in memory to be written\n";
  }
  mIsWaiting = mHasWaited = true;
}

void H5_File::WriteImmediately(H5_Node& node, const std::function<void()>& write) {
  const std::string name = node.FullName();
  const Vexa::ReportContext context(name, mFilename);
  BeginWriting(Vexa_H5::LockWait::Patient());
  const std::size_t openBefore = mOpenNodes.size();
  node.SetUnflushed();
  const auto openAndWrite = [&] {
    if (!node.IsObjectOpen()) {
      node.OpenObject();
    }
    write();
    CloseNodesOpenedSince(openBefore);
  };
  if (mIsUnfinished) {
    // Nobody catches what goes wrong here, so the report has all of its context.
    openAndWrite();
    mIsWriting = false;
    return;
  }
  Vexa::FailedWrites failed;
  if (!failed.Try(name, openAndWrite)) {
    mHasFailed = true;
    node.DropCache();
    if (!FirstFailure().Try([&] { CloseNodesOpenedSince(openBefore); })) {
      failed.SetHopeless();
    }
  }
  mIsWriting = failed.IsHopeless();
  failed.Throw(mFilename);
}

void H5_File::CloseNodesOpenedSince(std::size_t openBefore) {
  // The groups above an object were opened for it, and are many if each object has its own.
  while (mOpenNodes.size() > openBefore) {
    mOpenNodes.back()->CloseObject();
  }
}

Vexa::CacheStatistics H5_File::Statistics(const Vexa::CacheStatistics& others) const {
  Vexa::CacheStatistics statistics = others;
  ++statistics.mFiles;
  CountNodes(mpRoot.get(), statistics);
  statistics.mFilesWithCache += statistics.mBytes == others.mBytes ? 0 : 1;
  return statistics;
}

void H5_File::Statistics(std::uint64_t& dirs, std::uint64_t& objects,
                         std::uint64_t& objectsWithCache, std::uint64_t& timeSteps,
                         std::uint64_t& bytes) const {
  const auto [files, d, o, filesWithCache, withCache, t, b] = Statistics();
  std::tie(dirs, objects, objectsWithCache, timeSteps, bytes) = std::tie(d, o, withCache, t, b);
}

void H5_File::WriteInfo(std::ostream& os, int verbosity) const {
  const Vexa::CacheStatistics counts = Statistics();
  const auto objectsWithCache = static_cast<double>(counts.mObjectsWithCache);
  const double average =
      objectsWithCache == 0 ? 0. : static_cast<double>(counts.mTimeSteps) / objectsWithCache;
  os << mFilename << "  id=" << mFile_id << "\n"
     << "|  " << counts.mDirs << " dir(s) with " << counts.mObjects << " dataset(s) ("
     << counts.mObjectsWithCache << " with cached data)\n"
     << "|  " << counts.mBytes << " bytes, " << counts.mTimeSteps << " timesteps cached (average "
     << average << " steps/dataset)\n";
  if (verbosity > 2) {
    mpRoot->WriteInfo(os, "", verbosity, 10, true);
  }
}

std::ostream& operator<<(std::ostream& os, const H5_File& file) {
  file.WriteInfo(os, 3);
  return os;
}

MyVector<std::string> H5_File::GetNames(const std::string& glob, bool recursive) const {
  std::vector<std::string> names;
  mpRoot->AppendDataSets(glob, names, recursive);
  std::sort(names.begin(), names.end());
  return MyVector<std::string>(names);
}
