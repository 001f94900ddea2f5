#include "Utils/Store/H5_Node.hpp"

#include <ostream>

#include "Utils/ErrorHandling/FirstFailure.hpp"
#include "Utils/ErrorHandling/OnFailure.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Factory/FactoryBackbone.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/Store/FailedWrites.hpp"
#include "Utils/Store/H5_File.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"
#include "Utils/Store/H5_ObjectDir.hpp"
#include "Utils/StringParsing/GlobMatches.hpp"

// A list of the groups above one that is being read, innermost first, and where each lies.
struct H5_Node::Ancestors {
  const Ancestors* mpAbove;
  unsigned long mFile;
  haddr_t mAddress;
  int mDepth;
};

H5_Node::H5_Node(H5_File& file, hid_t fileId, int verbosity)
    : mName("/"),
      mTrace(verbosity),
      mIsOnDisk(true),
      mIsReadyToAppend(true),
      mpParent(nullptr),
      mpFile(&file),
      mpMembers(std::make_unique<MyMap<std::string, H5_Node>>()) {
  OpenNode(fileId);
  InitChildrenFromDir(nullptr);
  CloseObject();
}

H5_Node::H5_Node(const std::string& name, H5_Node& parent, Origin origin, int verbosity)
    : mName(name),
      mTrace(verbosity),
      mIsOnDisk(origin == Origin::OnDisk),
      mIsReadyToAppend(!mIsOnDisk),
      mpParent(&parent),
      mpFile(parent.mpFile) {
  if (GetExtension(name) == "dir") {
    mpMembers = std::make_unique<MyMap<std::string, H5_Node>>();
  }
}

std::string_view H5_Node::Type() const {
  return mpParent == nullptr ? std::string_view("dir") : GetExtension(mName);
}

std::string H5_Node::Path() const {
  if (mpParent == nullptr) {
    return "";
  }
  // One text grows: copied at each level, deep groups took several times as long.
  std::string path = mpParent->FullName();
  if (path.back() != '/') {
    path += '/';
  }
  return path;
}

const std::string& H5_Node::Filename() const {
  return mpFile->Filename();
}

MyMap<std::string, H5_Node>& H5_Node::Members() const {
  // Never destroyed: files are written while the process exits.
  static auto& none = *new MyMap<std::string, H5_Node>;
  return IsGroup() ? *mpMembers : none;
}

std::string_view H5_Node::GetExtension(std::string_view name) const {
  const std::size_t idx = name.rfind('.');
  REQUIRE(idx!=std::string::npos,
          "H5_Node: attempting to create H5_Object node with name '"
              << name << "'.\nNames of H5_Objects must always have one of the "
              << "valid extensions:\n("
              << Vexa::Verbatim(Factory::FormatRegisteredClassIDs(
                     H5_Object::Registry().RegisteredClassIDs()))
              << "). This error can occur when creating a new\ndata-set in a "
              << "CachedH5File without an extension (as in the name\nabove). This "
              << "error can also occur when a non-compatible .h5 file\nis processed "
              << "as a CachedH5File.");
  return name.substr(idx + 1);
}

void H5_Node::InitChildrenFromDir(const Ancestors* above) {
  const std::string fullName = FullName();
  const Vexa::ReportContext context(fullName, Filename());
  REQUIRE(mpObject->IsObjectOpen(),
          "Internal error: InitChildrenFromDir should only be called from\n"
              << "h5_Node::H5_Node, after the object was opened");
  const auto& dir = GetObject<H5_Objects::Dir>();
  H5O_info_t info;
  const herr_t err = H5Oget_info(dir.GroupId(), &info);
  REQUIRE(err>=0, "H5Oget_info failed");
  const Ancestors here{above, info.fileno, info.addr, above == nullptr ? 0 : above->mDepth + 1};
  RequireNoCycle(here);
  if (info.num_attrs > 0) {
    mpFile->mGroupsWithAttributes.push_back(fullName);
  }

  std::string unidentified;
  mAddress = above == nullptr ? info.addr : mAddress;
  for (const auto& [name, address] : dir.ReadMembers()) {
    if (!H5_Object::Registry().KeyExists(GetExtension(name))) {
      unidentified += name + " ";
      continue;
    }
    mTrace.Line(5, "Create ", name, " as child of ", fullName);
    H5_Node& child = InsertChild(name, Origin::OnDisk);
    child.mAddress = mAddress == HADDR_UNDEF ? HADDR_UNDEF : address;
    if (child.IsGroup()) {
      child.OpenNode(dir.GroupId());
      child.InitChildrenFromDir(&here);
      child.CloseObject();
    }
  }
  mTrace.Line(5, "H5_Node open ", fullName, " (", Children().size(), " objects)");
  if (above != nullptr && Children().empty()) {
    mpFile->mEmptyGroups.push_back(fullName);
  }
  if (!unidentified.empty()) {
    REQUIRE(false, "H5_Node: file " << Filename() << " contains these unidentified objects:\n"
            << unidentified << "\n"
            << "You are likely trying to work with new-style h5-utilities\n"
            << "on non-conpliant h5-files like Vars_SphereA0.h5.\n"
            << "Or you have linked without H5 in your FACTORY_LIBS.\n");
  }
}

void H5_Node::RequireNoCycle(const Ancestors& group) const {
  for (const Ancestors* outer = group.mpAbove; outer != nullptr; outer = outer->mpAbove) {
    const bool isItself = outer->mFile == group.mFile && outer->mAddress == group.mAddress;
    REQUIRE(!isItself, "Group '" << FullName() << "' of file " << Filename()
            << " contains itself through a link");
  }
  // Deeper nesting than this is not made by anyone; the walks over the tree are recursive.
  constexpr int sDeepestGroup = 1000;
  REQUIRE(group.mDepth<=sDeepestGroup, "Groups of file " << Filename() << " are nested more than "
          << sDeepestGroup << " deep");
}

H5_Node& H5_Node::InsertChild(const std::string& name, Origin origin) {
  if (origin == Origin::OnDisk) {
    mpFile->CountNode();
  }
  return mpMembers->Insert(name, name, *this, origin, mTrace.Verbosity())[name];
}

H5_Node& H5_Node::CreateChild(const std::string& non_path_name) {
  REQUIRE(Type()=="dir", "CreateNode must be called on dir's only");
  REQUIRE(non_path_name.find("/")==std::string::npos,
          "CreateChild must be called with a name w/o slashes. non_path_name=" << non_path_name);
  const std::string type(GetExtension(non_path_name));
  // This fails, with the list of known kinds, before anything is inserted.
  H5_Object::Registry().Retrieve(type, "Creating '" + non_path_name + "'");
  return InsertChild(non_path_name, Origin::New);
}

H5_Node* H5_Node::FindChild(const std::string& name) const {
  if (H5_Node* const child = Members().Find(name)) {
    return child;
  }
  // Whoever makes objects under both names means two.
  H5_Node* const legacy = Members().Find(H5_Objects::LegacyName(name));
  return legacy == nullptr || !legacy->mIsOnDisk ? nullptr : legacy;
}

H5_Node* H5_Node::DirectoryTraversal(std::string_view path, bool create) {
  H5_Node* ptr = this;
  while (!path.empty()) {
    const std::size_t slash = path.find('/');
    const std::string piece(path.substr(0, slash));
    path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
    if (piece.empty()) {
      continue;
    }
    if (piece == "..") {
      REQUIRE(ptr->Parent()!=nullptr,
              "Trying to proceed to parent directory of Root().  Impossible");
      ptr = ptr->Parent();
      mTrace.Line(5, "changed path to ", ptr->FullName());
      continue;
    }
    H5_Node* child = ptr->FindChild(piece);
    child = child != nullptr && child->mIsGone && !create ? nullptr : child;
    if (child == nullptr && !create) {
      mTrace.Line(5, "node ", piece, " not found.  Terminate directory traversal.");
      return nullptr;
    }
    if (child == nullptr) {
      child = &ptr->CreateChild(piece);
      mTrace.Line(5, "created ", piece);
    }
    ptr = child;
  }
  return ptr;
}

H5_Node& H5_Node::CreateNode(const std::string& path) {
  mTrace.Line(5, "CreateNode(\"", path, "\")");
  return *DirectoryTraversal(path, true);
}

H5_Node& H5_Node::GetNode(const std::string& path) {
  H5_Node* ptr = DirectoryTraversal(path, false);
  REQUIRE(ptr!=nullptr, "Node " << path << " not found");
  return *ptr;
}

const H5_Node& H5_Node::GetNode(const std::string& path) const {
  return const_cast<H5_Node*>(this)->GetNode(path);
}

bool H5_Node::Exists(const std::string& path) const {
  // Without creation the traversal changes nothing.
  return const_cast<H5_Node*>(this)->DirectoryTraversal(path, false) != nullptr;
}

H5_Object& H5_Node::Object() const {
  if (mpObject == nullptr) {
    mIsGone = false;
    mpObject = H5_Object::Create(std::string(Type()), "H5_Node: creating " + FullName(), mName,
                                 mIsOnDisk, mTrace.Verbosity());
    mpObject->SetCacheListener(
        [node = const_cast<H5_Node*>(this)](std::uint64_t before, std::uint64_t now) {
          node->CacheChanged(before, now);
        });
  }
  return *mpObject;
}

void H5_Node::OpenNode(hid_t parentId) const {
  const std::string name = FullName();
  const Vexa::ReportContext context(name, Filename());
  Object();
  mpFile->NodeOpened(*this);
  mTrace.Line(5, "H5_Node mpObject->OpenObject(", parentId, ", ", mName,
              ");  mpObject=", static_cast<const void*>(mpObject.get()));
  // What fails half-way through may have an identifier open already.
  const OnFailure close([this] { FirstFailure().Try([this] { CloseObject(); }); });
  mpObject->OpenObject(parentId);
}

void H5_Node::OpenObject() const {
  REQUIRE(Root()->IsFileOpen(), "Tried to open " << FullName() << " but H5_File closed.");
  mTrace.Line(5, "H5_Node ", Path(), " OpenObject()");
  const bool isFound = mAddress != HADDR_UNDEF && mpFile->HasKnownAddresses();
  Object().SetAddress(isFound ? mAddress : HADDR_UNDEF);
  if (mpParent == nullptr || isFound) {
    OpenNode(mpFile->FileId());
    return;
  }
  if (!mpParent->IsObjectOpen()) {
    mpParent->OpenObject();
  }
  OpenNode(mpParent->GetObject<H5_Objects::Dir>().GroupId());
}

void H5_Node::MakeReadyToAppend() {
  const std::string name = FullName();
  const Vexa::ReportContext context(name, Filename());
  const bool wasOpen = IsObjectOpen();
  if (!wasOpen) {
    OpenObject();
  }
  SetUnflushed();
  mpObject->PrepareToAppend();
  if (!wasOpen) {
    CloseObject();
  }
  mIsReadyToAppend = true;
}

void H5_Node::CloseObject() const {
  mTrace.Line(5, "H5_Node ", Path(), " closing");
  mpFile->CloseNodes(*this);
}

void H5_Node::WriteCache(Vexa::FailedWrites& failed) {
  if (CummulativeCacheSize() == 0) {
    return;
  }
  mTrace.Line(5, "H5_Node ", Path(), " WriteCache()");
  const std::string name = FullName();
  const Vexa::ReportContext context(name, Filename());
  const bool wasOpen = IsObjectOpen();
  const bool wasKnown = !wasOpen && Object().AreAttributesKnown();
  const std::uint64_t steps = Object().StepsInFile();
  const bool isWritten = failed.Try(name, [&] {
    if (!wasOpen) {
      OpenObject();
    }
    const std::uint64_t found = mpObject->StepsInFile();
    REQUIRE(found==steps || !wasKnown || !mpFile->HasWaited(),
            "Another program changed the file while it was waited for: there were "
                << steps << " steps, and are " << found);
    SetUnflushed();
    mpObject->WriteCache();
  });
  if (!isWritten) {
    DropCache();
  } else {
    for (auto [childName, child] : Members()) {
      failed.IsHopeless() ? child.DropCache() : child.WriteCache(failed);
    }
  }
  // What does not reach the file before its object is closed, as on a full disk, is lost to the
  // library, which is of no use to the file any more.
  if (!wasOpen && !failed.Try(name, [this] { CloseObject(); })) {
    failed.SetHopeless();
  }
}

void H5_Node::DropCache() {
  if (mpObject != nullptr) {
    mpObject->DropCache();
  }
  for (auto [name, child] : Members()) {
    child.DropCache();
  }
}

void H5_Node::SetUnflushed() {
  if (mpFile->mStaysReadable) {
    mpFile->mUnflushed.insert(&Object());
  }
}

void H5_Node::RolledBack(bool isFileNew) {
  const bool isRoot = mpParent == nullptr;  // which every file has
  mIsGone = isFileNew && mpObject == nullptr;
  mIsOnDisk = mIsOnDisk && (isRoot || !isFileNew);
  mIsReadyToAppend = isRoot || !mIsOnDisk;
  if (mpObject != nullptr) {
    mpObject->RolledBack(isFileNew && !isRoot);
  }
  for (auto [name, child] : Members()) {
    child.RolledBack(isFileNew);
  }
}

void H5_Node::HoldAgain() {
  if (mpObject != nullptr) {
    mpObject->HoldAgain();
  }
  for (auto [name, child] : Members()) {
    child.HoldAgain();
  }
}

void H5_Node::CacheChanged(std::uint64_t before, std::uint64_t now) {
  H5_File::sTotalCacheSize = H5_File::sTotalCacheSize - before + now;
  for (H5_Node* node = this; node != nullptr; node = node->mpParent) {
    node->mCacheSize = node->mCacheSize - before + now;
  }
}

void H5_Node::AppendDataSets(const std::string& glob, std::vector<std::string>& names,
                             bool recursive) const {
  const std::string path = FullName() + (mpParent == nullptr ? "" : "/");
  for (const auto& [name, child] : Children()) {
    if (child.IsGroup()) {
      child.AppendDataSets(glob, names, recursive);
    } else if (std::string fullName = path + name; !child.mIsGone && GlobMatches(glob, fullName)) {
      names.push_back(std::move(fullName));
    }
  }
}

void H5_Node::WriteInfo(std::ostream& os, const std::string& indent, int verbosity, int mostObjects,
                        bool isLast) const {
  os << indent << "-- " << mName << ": " << CummulativeCacheSize() << " bytes cummulative cached, ";
  if (!IsGroup()) {
    os << SizeOfCache() << " bytes cached, ";
    if (mpObject != nullptr) {
      mpObject->Output(os, "");
    }
  }
  os << "\n";
  const std::string childIndent = indent + (isLast ? "    " : "   |");
  const std::int64_t total = Children().Size();
  std::int64_t written = 0;
  for (const auto& [name, child] : Children()) {
    if (written == mostObjects) {
      os << indent << "   |\n" << indent << "   << " << total - written << " objects skipped >>\n";
      break;
    }
    ++written;
    child.WriteInfo(os, childIndent, verbosity, mostObjects, written == total);
  }
}
