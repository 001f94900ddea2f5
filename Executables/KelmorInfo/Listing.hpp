// The datasets of each file, and of all files together.
#pragma once

#include <hdf5.h>

#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Executables/KelmorInfo/InputFiles.hpp"
#include "Executables/Series/Facts.hpp"
#include "Executables/Series/JoinOptions.hpp"

/// One name in all files that have it. What may differ between them is there once for each form
/// that it takes, in the order of the files.
struct UnionFacts {
  std::string mName;
  std::string mKind;
  std::uint64_t mFiles = 0;
  std::optional<std::uint64_t> mLength;  // rows, values or strings of all; not of ver
  std::vector<hsize_t> mColumns;         // of dat
  std::vector<TensorFacts> mTensors;
  std::vector<std::vector<std::string>> mLegends;
  std::vector<H5_Objects::Version::History> mVersions;
  std::vector<std::vector<std::string>> mFilters;
  std::optional<std::uint64_t> mSteps;  // of all files
  TimeRange mTimes;
  std::optional<std::uint64_t> mStoredBytes = 0;
};

struct ListedFile : InputFile {
  std::vector<Facts> mDatasets = {};             // ascending by name
  std::vector<std::string> mExternalFiles = {};  // where its links led; ascending
  std::vector<InputFile> mSegments = {};         // to which a view refers
};

struct Listing {
  std::vector<ListedFile> mFiles;
  std::map<std::string, UnionFacts> mUnion;  // by name
};

Listing MakeListing(const JoinOptions& options);

void PrintListing(std::ostream& os, const Listing& listing, bool verbose);
void PrintListingAsJson(std::ostream& os, const Listing& listing);

/// Fails, with all of them, if a file did not open or a dataset could not be read.
void RequireNoProblems(const Listing& listing);
