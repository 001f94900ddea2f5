// What one file says about one dataset, read in one place for all that is printed of it.
#pragma once

#include <hdf5.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Executables/Series/Inputs.hpp"
#include "Utils/Store/H5_ObjectVersion.hpp"

struct TimeRange {
  double mFirst;
  double mLast;
  /// Of times that are numbers; none if there are none.
  static std::optional<TimeRange> Of(const MyVector<double>& times);
  void Include(const TimeRange& other);
};

struct Facts {
  std::string mName;
  std::string mKind;                       // "dat", "coef", "tdm", "txt" or "ver"
  std::vector<hsize_t> mShape;             // extents in the file, of the values of coef and tdm
  std::string mTensor;                     // structure and mesh dimension of tdm, as text
  std::optional<std::uint64_t> mSteps;     // of the kinds that have times
  std::optional<TimeRange> mTimes;         // smallest and largest
  std::vector<std::string> mLegends;       // per column of dat; of time and data of coef and tdm
  H5_Objects::Version::History mVersions;  // of ver
  std::vector<std::string> mFilters;       // of the values
  // On disk; none where that is not known, as in a damaged file.
  std::optional<std::uint64_t> mStoredBytes = 0;
  std::string mProblem;  // why not all could be read; empty if all is well
};

/// Of two numbers of bytes; none where one is not known.
std::optional<std::uint64_t> Sum(const std::optional<std::uint64_t>& a,
                                 const std::optional<std::uint64_t>& b);

/// Reads the facts. What fails does not end the run: it becomes the facts' problem.
Facts ReadFacts(Inputs& inputs, int file, const std::string& name);

/// The extension of a dataset's name.
std::string KindOf(const std::string& name);
