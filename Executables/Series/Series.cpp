#include "Executables/Series/Series.hpp"

#include <algorithm>

#include "Utils/ErrorHandling/CodeError.hpp"

namespace {

// Whether a column, counted from 0, has no name: tables without a legend are read as if they had
// names that begin with "undef".
bool IsUnnamed(const std::string& name, std::size_t column) {
  return name.empty() || name == "undefined" || name == "undef " + std::to_string(column);
}

// Says which columns have another name than in the first legend; empty if none has.
std::string LegendDifferences(const MyVector<std::string>& legend,
                              const MyVector<std::string>& first) {
  std::vector<std::string> differences;
  for (std::size_t c = 0; c < std::min(legend.size(), first.size()); ++c) {
    if (legend[c] != first[c] && !IsUnnamed(legend[c], c) && !IsUnnamed(first[c], c)) {
      differences.push_back("'" + legend[c] + "' instead of '" + first[c] + "' as column " +
                            std::to_string(c));
    }
  }
  return ListNames(differences, 4);
}

}  // namespace

void Series::NoteLegend(int file, const MyVector<std::string>& legend) {
  constexpr std::size_t mostNames = 6;
  bool isNamed = false;
  for (std::size_t c = 0; c < legend.size(); ++c) {
    isNamed = isNamed || !IsUnnamed(legend[c], c);
  }
  if (!isNamed) {
    return;
  }
  if (mFirstLegend.empty()) {
    mFirstLegend = legend;
  }
  const std::string differences = LegendDifferences(legend, mFirstLegend);
  mLegends.Add(file, !differences.empty()
                         ? differences
                         : ListNames({mFirstLegend.begin(), mFirstLegend.end()}, mostNames));
}

void Series::Note(int file, const H5_Object& object, const MyVector<std::string>& legend,
                  Depth depth) {
  if (depth != Depth::TimesIfReadable) {
    return;
  }
  NoteLegend(file, legend);
  try {
    for (const std::string& part : object.ForeignParts()) {
      mForeignParts[part].push_back(file);
    }
  } catch (const CodeError&) {
    // A join does not look at them, and so does not fail.
    mForeignParts["attributes or members that cannot be listed"].push_back(file);
  }
}

void Series::TakeInAll(Depth depth) {
  for (const CachedH5File& file : mRun.mInputs.Files()) {
    RequireJoinable(file);
  }
  for (const int file : mDataset.mFiles) {
    TakeIn(file, mAgreement.IsReached() ? depth : Depth::Agreement);
  }
  mAgreement.Require([this](int file) { return mRun.mInputs[file].Filename(); });
}
