#include "Executables/Series/Facts.hpp"

#include <algorithm>
#include <cmath>

void TimeRange::Include(const TimeRange& other) {
  mFirst = std::min(mFirst, other.mFirst);
  mLast = std::max(mLast, other.mLast);
}

std::string TensorFacts::Text() const {
  return "dimension " + std::to_string(mDimension) + ", symmetry '" + mSymmetry +
         "', mesh of dimension " + std::to_string(mMeshDimension);
}

void Facts::AddStorage(const H5_Objects::DataSet& dataset) {
  Tables::Storage storage = dataset.Storage();
  mStoredBytes = Sum(mStoredBytes, storage.mBytes);
  mFilters = std::move(storage.mFilters);
}

void Facts::SetTimes(const MyVector<double>& times) {
  mSteps = times.size();
  for (const double time : times) {
    if (!std::isnan(time)) {
      mTimes.Include(time);
    }
  }
}

void Facts::AddSegments(const Tables::TableLayout& layout) {
  if (layout.mpVirtual != nullptr) {
    for (const Tables::Mapping& mapping : layout.mpVirtual->mMappings) {
      mSegments.insert(mapping.mFile);
    }
  }
}

std::optional<std::uint64_t> Sum(const std::optional<std::uint64_t>& a,
                                 const std::optional<std::uint64_t>& b) {
  return a && b ? std::optional(*a + *b) : std::nullopt;
}
