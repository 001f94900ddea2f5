// What one file says about one dataset.
#pragma once

#include <hdf5.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Utils/Containers/MyVector.hpp"
#include "Utils/Store/DataSet.hpp"
#include "Utils/Store/H5_ObjectVersion.hpp"
#include "Utils/Tables/Columns.hpp"

/// The smallest and the largest of some times; smallest > largest while there are none.
struct TimeRange {
  double mFirst = std::numeric_limits<double>::infinity();
  double mLast = -std::numeric_limits<double>::infinity();
  bool IsEmpty() const { return mFirst > mLast; }
  void Include(double time) { Include({time, time}); }
  void Include(const TimeRange& other);
};

/// What the files of a tensor series must agree in.
struct TensorFacts {
  int mDimension;
  std::string mSymmetry;
  int mMeshDimension;
  std::string Text() const;
  friend bool operator==(const TensorFacts&, const TensorFacts&) = default;
};

struct Facts {
  std::string mName;
  std::string mKind;                       // "dat", "coef", "tdm", "txt" or "ver"
  std::vector<hsize_t> mShape;             // extents in the file, of the values of coef and tdm
  std::optional<TensorFacts> mTensor;      // of tdm
  std::optional<std::uint64_t> mSteps;     // of the kinds that have times
  TimeRange mTimes;                        // of those that are numbers
  std::vector<std::string> mLegends;       // per column of dat; of time and data of coef and tdm
  H5_Objects::Version::History mVersions;  // of ver
  std::vector<std::string> mFilters;       // of the values
  // The bytes on disk are not known where a file is damaged.
  std::optional<std::uint64_t> mStoredBytes = 0;
  std::set<std::string> mSegments;  // which files a view names for the values
  // Where a view has the times of a table; it holds those of other kinds itself.
  std::vector<Tables::Mapping> mTimesElsewhere;
  std::string mProblem;  // why not all could be read; empty if all is well

  /// Notes the filters of a dataset, and adds what it takes on disk.
  void AddStorage(const H5_Objects::DataSet& dataset);
  void SetTimes(const MyVector<double>& times);
  /// Notes the files of which a virtual table has its rows; of another table none.
  void AddSegments(const Tables::TableLayout& layout);
};

/// The sum of two numbers of bytes, which is not known where one of them is not.
std::optional<std::uint64_t> Sum(const std::optional<std::uint64_t>& a,
                                 const std::optional<std::uint64_t>& b);
