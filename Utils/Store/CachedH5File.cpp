#include "Utils/Store/CachedH5File.hpp"

#include <optional>
#include <ostream>
#include <utility>

#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/OnFailure.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/ExternalFiles.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"
#include "Utils/Store/H5_ObjectVersion.hpp"
#include "Utils/Store/InsideStore.hpp"
#include "Utils/StringParsing/PathUtilities.hpp"

namespace {

// The real path of an existing file. A program makes a handle for the same file in every step, so
// the last answer is kept: it holds as long as the name leads to that file.
std::string RealPathOf(const std::string& filename, const Vexa::FileIdentity& identity) {
  struct Answer {
    std::string mFilename;
    Vexa::FileIdentity mIdentity;
    std::string mPath;
  };
  static auto& last = *new Answer{};
  if (last.mFilename != filename || last.mIdentity != identity) {
    last = {filename, identity, Realpath(filename)};
  }
  return last.mPath;
}

// The path of a file that is to be created. What has the name already is not looked at.
std::string NewPath(const std::string& filename) {
  const std::string dir = GetDirectoryFromPath(filename);
  REQUIRE(DirectoryExists(dir), "Tried to create file " << filename << " in nonexistent directory");
  const std::string path = Realpath(dir);
  return (path == "/" ? "" : path) + "/" + GetFilenameFromPath(filename);
}

std::string FullPath(const std::string& filename, H5AccessType atype) {
  if (const std::optional<Vexa::FileIdentity> identity = Vexa::IdentityOf(filename)) {
    return RealPathOf(filename, *identity);
  }
  REQUIRE(atype == ReadWrite, "Tried to open nonexistent file " << filename << " for reading");
  return NewPath(filename);
}

void RequireType(const H5_Node* ptr, const std::string& typ) {
  REQUIRE(typ==ptr->Type(), "Type of name and OBJECT inconsistent.  ptr->Type()='"
          << ptr->Type() << "', but OBJECT::ClassID()='" << typ << "'");
}

}  // namespace

CachedH5File::CachedH5File(const std::string& filename, H5AccessType access, int verbosity,
                           Kind kind)
    : mAtype(access) {
  Vexa::InsideStore::StopIfProcessEnds();
  const Vexa::InsideStore inside;
  const bool isWhole = kind == Kind::Whole;
  mpFile = &TheCachedH5FileHolder().GetH5_File(
      isWhole ? NewPath(filename) : FullPath(filename, access), access, verbosity, !isWhole);
  mpFile->SetHandle(&mpFile);
}

// Delegates, so that an exception on the way finds a handle whose destructor lets the file go.
CachedH5File::CachedH5File(const std::string& filename, H5AccessType access,
                           const VersionHistory& versionHistory, int verbosity, bool keepOpen)
    : CachedH5File(filename, access, verbosity, Kind::Growing) {
  const Vexa::InsideStore inside;
  if (mpFile->IsNew() && !versionHistory.empty()) {
    auto& record = GetObjectForWrite<H5_Objects::Version>("VersionHist.ver");
    // A record that waited for a file which was removed is in memory already.
    if (record.NTimeStepsCached() == 0) {
      record.Initialize(versionHistory);
    }
  }
  mpFile->SetKnown();
  if (!keepOpen) {
    mpFile->CloseFile();
  }
}

std::unique_ptr<CachedH5File> CachedH5File::CreateUnfinished(const std::string& filename) {
  return std::unique_ptr<CachedH5File>(new CachedH5File(filename, ReadWrite, 0, Kind::Whole));
}

CachedH5File::~CachedH5File() {
  if (mpFile == nullptr) {
    return;  // the cache was purged
  }
  Vexa::InsideStore::StopIfProcessEnds();
  const Vexa::InsideStore inside;
  if (Vexa::MayCheckInDestructor()) {
    if (!mpFile->IsIncomplete()) {
      // First of all, so that a write that follows closes the file instead of flushing it.
      mpFile->SetHandle(nullptr);
      TheCachedH5FileHolder().CheckForEmergencyWriteCache();
      mpFile->CloseFile();
    }
  } else if (!mpFile->IsUnfinished() && !MyAbortCalled_UncleanShutdown()) {
    // A failure is on its way, whose report another one would displace. Whoever catches it goes on
    // with the file, also where a write was interrupted.
    mpFile->CloseSilently();
  }
  mpFile->SetHandle(nullptr);
}

void CachedH5File::LetGo() {
  const Vexa::InsideStore inside;
  H5_File* const file = std::exchange(mpFile, nullptr);
  file->SetHandle(nullptr);
  const OnFailure close([file] { file->CloseSilently(); });
  TheCachedH5FileHolder().CheckForEmergencyWriteCache(false);
  file->CloseFile();
}

std::map<std::string, std::string> CachedH5File::ExternalFiles() const {
  return Vexa_H5::ExternalFilesOf(mpFile->Filename());
}

std::string CachedH5File::Path(const std::string& name) const {
  const Vexa::InsideStore inside;
  return mpFile->Root()->GetNode(name).FullName();
}

std::string CachedH5File::Name(const std::string& name) const {
  const Vexa::InsideStore inside;
  return mpFile->Root()->GetNode(name).Name();
}

haddr_t CachedH5File::AddressOf(const std::string& name) const {
  const Vexa::InsideStore inside;
  return mpFile->Root()->GetNode(name).Address();
}

bool CachedH5File::Exists(const std::string& name) const {
  const Vexa::InsideStore inside;
  return mpFile->Root()->Exists(name);
}

MyVector<std::string> CachedH5File::GetNames(const std::string& glob, bool recursive) const {
  const Vexa::InsideStore inside;
  return mpFile->GetNames(glob, recursive);
}

H5_Object& CachedH5File::GetObjectForRead_(const std::string& name, const std::string& typ) {
  const Vexa::InsideStore inside;
  const Vexa::ReportContext context(name, mpFile->Filename());
  if (!mpFile->IsFileOpen()) {
    mpFile->OpenToRead();
  }
  REQUIRE(mpFile->Root()->Exists(name),
          "Requesting non-existent dataset '" << name << "' in file " << mpFile->Filename());
  const H5_Node* ptr = &mpFile->Root()->GetNode(name);
  RequireType(ptr, typ);
  if (!ptr->WasOnDisk() && !mpFile->IsOpenForWriting() && !mpFile->Contains(*ptr)) {
    REQUIRE(mAtype==ReadWrite, "'" << name << "' is not in file " << mpFile->Filename() << " yet; "
            << ptr->SizeOfCache() << " bytes of it wait in memory");
    // Readers that are in the way are passed after a while.
    mpFile->CloseFile();
    mpFile->OpenFile();
  }
  if (!ptr->IsObjectOpen()) {
    mpFile->CloseGroupsApartFrom(*ptr);
    ptr->OpenObject();
  }
  return ptr->Object();
}

H5_Object& CachedH5File::GetObjectForWrite_(const std::string& name, const std::string& typ) {
  const Vexa::InsideStore inside;
  const Vexa::ReportContext context(name, mpFile->Filename());
  CachedOutput::FlushIfRequested();
  REQUIRE(mAtype==ReadWrite, "Called GetObjectForWrite on an CachedH5File that is ReadOnly");
  mpFile->SetAccess(ReadWrite);
  H5_Node* ptr = &mpFile->Root()->CreateNode(name);
  RequireType(ptr, typ);
  if (!ptr->IsReadyToAppend()) {
    if (!mpFile->IsFileOpen()) {
      mpFile->OpenFile();
    }
    mpFile->CloseGroupsApartFrom(*ptr);
    ptr->MakeReadyToAppend();
  }
  return ptr->Object();
}

void CachedH5File::WriteImmediately(const std::string& name, const std::function<void()>& write) {
  const Vexa::InsideStore inside;
  mpFile->WriteImmediately(mpFile->Root()->GetNode(name), write);
}

void CachedH5File::SetUnfinished(bool isUnfinished) {
  mpFile->SetUnfinished(isUnfinished);
}

Vexa::FileDescriptor CachedH5File::Hold() const {
  const Vexa::InsideStore inside;
  return mpFile->Hold();
}

std::string CachedH5File::OpenedStamp() const {
  const Vexa::InsideStore inside;
  return mpFile->IsFileOpen() ? mpFile->Hold().Stamp() : "";
}

void CachedH5File::CloseObjects() {
  const Vexa::InsideStore inside;
  mpFile->CloseObjectsInGroups();
}

void CachedH5File::CloseFile() {
  const Vexa::InsideStore inside;
  mpFile->CloseFile();
}

std::ostream& operator<<(std::ostream& os, const CachedH5File& file) {
  return os << *file.mpFile;
}
