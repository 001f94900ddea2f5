#include "Executables/Series/Agreement.hpp"

#include <algorithm>
#include <iterator>
#include <span>
#include <sstream>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/Printable.hpp"

namespace {

// What a report lists: values, and names of those that have the same.
constexpr std::size_t sMostGroups = 8;
constexpr std::size_t sMostNames = 3;

std::string StructureText(const TensorStructure& structure, int dataMeshDim) {
  std::ostringstream text;
  text << structure << " on meshes of dimension " << dataMeshDim;
  return text.str();
}

// Where a history differs from the first input's.
std::string HistoryText(const H5_Objects::Version::History& history,
                        const H5_Objects::Version::History& first) {
  const auto [at, inFirst] = std::ranges::mismatch(history, first);
  std::string text = "version " + std::to_string(history.size());
  if (history.size() == first.size() && at != history.end()) {
    text += " with '" + at->first + "' instead of '" + inFirst->first + "' as entry " +
            std::to_string(at - history.begin() + 1);
  }
  return text;
}

}  // namespace

std::string ListNames(const std::vector<std::string>& names, std::size_t most) {
  // One more name takes no more room than to say that there is one more.
  const std::size_t listed = names.size() <= most + 1 ? names.size() : most;
  std::string text;
  for (std::size_t i = 0; i < listed; ++i) {
    text += (i == 0 ? "" : ", ") + names[i];
  }
  const std::size_t left = names.size() - listed;
  return left == 0 ? text : text + " and " + std::to_string(left) + " more";
}

void Agreement::Add(int file, const std::string& value) {
  for (Group& group : mGroups) {
    if (group.mValue == value) {
      group.mFiles.push_back(file);
      return;
    }
  }
  mGroups.push_back({value, {file}});
}

void Agreement::Differ(const char* condition, const std::string& label, int line,
                       const std::string& reason) {
  if (mReason.empty()) {
    mCondition = condition;
    mLabel = label;
    mLine = line;
    mReason = reason;
  }
}

void Agreement::Require(const std::function<std::string(int)>& nameOf) const {
  if (IsReached()) {
    return;
  }
  std::string message = mReason;
  for (const Group& group : std::span(mGroups).first(std::min(mGroups.size(), sMostGroups))) {
    std::vector<std::string> names;
    std::ranges::transform(group.mFiles, std::back_inserter(names), nameOf);
    message += "\n" + Printable(group.mValue + " in " + ListNames(names, sMostNames));
  }
  if (mGroups.size() > sMostGroups) {
    message += "\nand " + std::to_string(mGroups.size() - sMostGroups) + " more";
  }
  const std::string differing = nameOf(mGroups[1].mFiles.front());
  const ReportContext context(mName, differing);
  RequireFail(mCondition, mLabel.c_str(), mLine, message);
}

bool TableAgreement::Take(const H5_Objects::Dat& dat, int file) {
  const auto columns = static_cast<int>(dat.GetExtents()[1]);
  if (IsFirst()) {
    Ncols = columns;
    REQUIRE(Ncols>0, "Dataset " << Name() << " has no columns");
  }
  if (Ncols != columns) {
    Differ(
        "Ncols==static_cast<int>(dat.GetExtents()[1])", VEXA_CURRENT_REPORT_LABEL, __LINE__,
        "Dataset " + Printable(Name()) + " has different number of columns\nin different files.");
  }
  Add(file, std::to_string(columns) + (columns == 1 ? " column" : " columns"));
  if (mLegend.empty() || mLegend[0] == "undefined") {
    mLegend = dat.GetLegend();
  }
  return Ncols == columns;
}

bool TensorAgreement::Take(const H5_Objects::Tdm& tdm, int file) {
  const TensorStructure& structure = tdm.GetStructure();
  const int dataMeshDim = tdm.GetDataMeshDim();
  if (IsFirst()) {
    mpStructure = FindTensorIndexTable(structure.Dim(), structure.Symmetry());
    mDataMeshDim = dataMeshDim;
    Add(file, StructureText(structure, dataMeshDim));
    return true;
  }
  if (dataMeshDim == mDataMeshDim && structure == *mpStructure) {
    AddToFirst(file);
    return true;
  }
  if (dataMeshDim != mDataMeshDim) {
    Differ("tdm.GetDataMeshDim()==mDataMeshDim", "H5_ObjectTdm", __LINE__,
           "Tdm::Append dimension of DataMesh inconsistent");
  } else {
    Differ("structure==*mpStructure", "H5_ObjectTdm", __LINE__,
           "Tdm::Append TensorStructure inconsistent");
  }
  Add(file, StructureText(structure, dataMeshDim));
  return false;
}

bool VersionAgreement::Take(const H5_Objects::Version& ver, int file) {
  const unsigned long number = ver.GetCurrentVersion();
  H5_Objects::Version::History history = ver.RetrieveVersionHistory();
  if (IsFirst()) {
    version_number = number;
    version_history = std::move(history);
    Add(file, "version " + std::to_string(number));
    return true;
  }
  if (history == version_history) {
    AddToFirst(file);
    return true;
  }
  const std::string numbers = std::to_string(number) + " " + std::to_string(version_number);
  if (number != version_number) {
    Differ("ver.GetCurrentVersion() == version_number", VEXA_CURRENT_REPORT_LABEL, __LINE__,
           "Version mismatch '" + Printable(Name()) + "': " + numbers);
  } else {
    Differ("ver.RetrieveVersionHistory() == version_history", VEXA_CURRENT_REPORT_LABEL, __LINE__,
           "Version mismatch '" + Printable(Name()) + "' in history: " + numbers);
  }
  Add(file, HistoryText(history, version_history));
  return false;
}

void RequireNoSimilarRecord(const CachedH5File& file, const std::string& name) {
  // A name without glob characters matches no other.
  if (name.find_first_of("*?|") == std::string::npos || file.Exists(name)) {
    return;
  }
  const ReportContext context(name, file.Filename());
  const MyVector<std::string> data_sets = file.GetNames(name, true);
  REQUIRE(data_sets.size()==0, "Version information '"
                                   << name << "' not found in all h5 files.\n"
                                   << "Cannot join h5 files with different versions\n");
}

std::string TextOf(H5_Objects::Txt& txt) {
  std::string part = txt.RetrieveData();
  // Only arrays of characters can hold one; the output's strings end at it.
  REQUIRE(part.find('\0')==std::string::npos, "The text holds a null character");
  return part;
}
