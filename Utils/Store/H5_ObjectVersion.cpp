#include "Utils/Store/H5_ObjectVersion.hpp"

#include <ostream>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/Store/InsideStore.hpp"

template struct Factory::Register<H5_Objects::Version>;

namespace H5_Objects {

std::string Version::Help() {
  return "H5_Object::Version. Holds the version number as an attribute,  \n"
         "and holds a list of strings of the form:                       \n"
         "git-hash-of-commit-before-this-version : help-text             \n"
         "that contain a history of what was changed with every version. \n";
}

Version::Version(const std::string& name, bool existsOnDisk, int verbosity)
    : StringDataSet("H5_ObjectVersion", "Ver", {1, 2}, name, existsOnDisk, verbosity) {}

void Version::Initialize(const History& history) {
  const Vexa::InsideStore inside;
  REQUIRE(mHist.size()==0 and (not IsObjectOpen()), "Please call initialize only once");
  mWhole = history;
  Hold(history);
}

void Version::Hold(const History& history) {
  mHist = history;
  mSize = 0;
  mCurrentVersion = history.size();
  mCharacters = 0;
  for (const auto& [hash, help] : mHist) {
    mCharacters += hash.size() + help.size();
  }
  ReportCacheSize();
}

void Version::TakeExisting(const std::vector<hsize_t>& currdims) {
  const std::size_t ndims = currdims.size();
  REQUIRE(ndims==2, "Expected dim of 2, got " << ndims);
  const std::vector<unsigned long> version =
      Vexa_H5::RetrieveAttributes<unsigned long>(mMy_id, "Version", false, mTrace.Verbosity());
  REQUIRE(version.size()==1, "Bad size " << version.size());
  mCurrentVersion = version[0];
  REQUIRE(mCurrentVersion == currdims[0]+mHist.size(),
          "oops: CurrentVersion = " << mCurrentVersion << ", expected "
                                    << currdims[0] + mHist.size());
}

std::vector<std::string> Version::WaitingStrings() const {
  std::vector<std::string> strings;
  for (const auto& [hash, help] : mHist) {
    strings.insert(strings.end(), {hash, help});
  }
  return strings;
}

void Version::AttachAttributes() {
  Vexa_H5::AttachAttributes<unsigned long>(mMy_id, "Version", {mCurrentVersion},
                                           mTrace.Verbosity());
}

void Version::RequireWritable(const std::vector<std::string>& strings) const {
  REQUIRE(mSize==0, "This can be written only once, ");
  const std::size_t entries = strings.size() / 2;
  mTrace.Line(5, "Txt append ", entries, " strings to '", mName, "' (new size=", entries, ")");
}

void Version::DropCache() {
  mHist.clear();
  mCharacters = 0;
  ReportCacheSize();
}

void Version::HoldAgain() {
  if (!mWhole.empty() && mSize == 0 && mHist.empty()) {
    Hold(mWhole);
  }
}

unsigned long Version::GetCurrentVersion() const {
  REQUIRE(mHist.size()>0 || IsObjectOpen() || AreAttributesKnown(),
          "Must call Initialize or OpenObject first");
  return mCurrentVersion;
}

Version::History Version::RetrieveVersionHistory() const {
  const Vexa::ReportAs label("H5_ObjectVersion");
  REQUIRE(IsObjectOpen(), "Dataset must be opened first");
  const std::vector<hsize_t> dims = ExtentsInFile();
  const std::size_t ndims = dims.size();
  REQUIRE(ndims == 2, "Expected dim of 2, got " << ndims);
  REQUIRE(dims[0]==mSize, "Extents inconsistent between memory and file");
  REQUIRE(dims[1]==2, "Expected 2 columns, got " << dims[1]);
  std::vector<std::string> strings = ReadAllStrings(2 * dims[0]);
  History history;
  history.reserve(dims[0]);
  for (std::size_t i = 0; i < strings.size(); i += 2) {
    history.emplace_back(std::move(strings[i]), std::move(strings[i + 1]));
  }
  return history;
}

std::string Version::RetrieveVersionHistorySingleString() const {
  std::string text;
  for (const auto& [hash, help] : RetrieveVersionHistory()) {
    text += "Hash " + hash + ":\n" + help + "\n";
  }
  return text;
}

std::ostream& Version::Output(std::ostream& os, const std::string& indent) const {
  os << indent;
  return AreAttributesKnown() || !mHist.empty() ? os << "Version " << mCurrentVersion
                                                : os << "Version unknown";
}

}  // namespace H5_Objects
