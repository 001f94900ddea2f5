// What a join would do with some files: which steps of each it would keep, and what disagrees. It
// is made with the join's own discovery, checks and selection, reads times but no other values
// (texts and version records apart), and is plain data that is then printed or drawn.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Executables/KelmorInfo/InputFiles.hpp"
#include "Executables/Series/JoinOptions.hpp"

/// Neighbouring steps of one file that are all kept, without a gap between them, or all wiped.
struct PlanPiece {
  bool mIsKept;
  std::uint64_t mSteps;
  double mFirst;  // times of the first step and the last
  double mLast;
  // Times that are no numbers equal each other here: datasets with such times may fare alike.
  friend bool operator==(const PlanPiece& a, const PlanPiece& b) {
    const auto isSame = [](double x, double y) { return x == y || (x != x && y != y); };
    return a.mIsKept == b.mIsKept && a.mSteps == b.mSteps && isSame(a.mFirst, b.mFirst) &&
           isSame(a.mLast, b.mLast);
  }
};

/// The part of one file in a dataset.
struct PlannedFile {
  int mFile;  // its number among the files of the plan
  std::uint64_t mKept = 0;
  std::uint64_t mTotal = 0;
  std::vector<PlanPiece> mPieces;  // in the order of the steps
  std::uint64_t mTimeless = 0;     // steps whose time is no number
  /// "3 of 4": how many steps are kept.
  std::string CountText() const { return std::to_string(mKept) + " of " + std::to_string(mTotal); }
  friend bool operator==(const PlannedFile&, const PlannedFile&) = default;
};

/// Two kept steps, one after the other, that lie more than four times as far apart as either does
/// from its other neighbour.
struct PlanGap {
  double mFrom;
  double mTo;
  friend bool operator==(const PlanGap&, const PlanGap&) = default;
};

/// A file that keeps the others from being joined, with the times that it has, if they can be read.
struct PlannedMisfit {
  int mFile;
  bool mHasTimes = false;
  double mFirst = 0;
  double mLast = 0;
  friend bool operator==(const PlannedMisfit&, const PlannedMisfit&) = default;
};

/// What becomes of the steps of a dataset. Of datasets without times it tells the files only.
struct PlannedSteps {
  std::vector<PlannedFile> mFiles;      // that hold it and agree, in order
  std::vector<PlannedMisfit> mMisfits;  // that hold it and do not, in order
  bool mHasTimes = false;
  std::uint64_t mKept = 0;
  std::uint64_t mTotal = 0;
  double mMaximumGap = 0;
  std::vector<PlanGap> mGaps;
  friend bool operator==(const PlannedSteps&, const PlannedSteps&) = default;
};

struct PlannedDataset {
  std::string mName;
  std::string mKind;
  std::size_t mSteps = 0;    // which of the plan's
  std::uint64_t mBytes = 0;  // of all that is kept, uncompressed
  bool mAgrees = true;
};

/// What some files have where others have something else.
struct PlannedValue {
  std::string mValue;
  std::vector<std::string> mFiles;
};

struct Disagreement {
  std::string mDataset;  // empty if it is about a file as a whole
  std::string mFile;     // empty if it is about none, or about several
  std::string mReason;
  std::vector<PlannedValue> mValues = {};  // of files that disagree with each other

  /// "/x.dat in 1.h5", or one of them, with the file's name as it is to be shown.
  std::string About(const std::string& file) const {
    return mDataset + (mDataset.empty() || mFile.empty() ? "" : " in ") + file;
  }
};

/// What a join would do in silence although nobody may want it.
struct PlanWarning {
  /// "time": steps lie where the joined series has none; "nan": times are no numbers; "order":
  /// steps or files go backwards in time; "legend": legends differ. For these kelmor-run refuses a
  /// join. "wiped": nothing is kept of a file; "gap"; "missing": files between others lack the
  /// dataset; "dropped": something is not carried over.
  std::string mKind;
  std::string mText;
  std::vector<std::string> mFiles;     // about which it is; of files out of order, the right order
  std::vector<std::string> mDatasets;  // or groups; at least one
  std::vector<PlannedValue> mValues;   // of the first dataset

  /// "/x.dat, /y.dat and 7 more": about `most` of the datasets.
  std::string About(std::size_t most) const;
};

struct Plan {
  std::vector<InputFile> mFiles;
  double mDeltaT = 0;
  bool mNoWipe = false;
  std::vector<PlannedDataset> mDatasets;  // in the order of joining
  std::vector<PlannedSteps> mSteps;       // each different from the others
  std::vector<Disagreement> mDisagreements;
  std::vector<PlanWarning> mWarnings;
  std::set<std::string> mExternalFiles;  // to which external links of the files led; real paths
  std::uint64_t mBytes = 0;

  bool Joins() const { return mDisagreements.empty(); }
  const PlannedSteps& StepsOf(const PlannedDataset& dataset) const {
    return mSteps[dataset.mSteps];
  }
  const std::string& NameOf(const PlannedFile& file) const {
    return mFiles[static_cast<std::size_t>(file.mFile)].mName;
  }
};

/// Fails only if the glob of datasets to be skipped is none.
Plan MakePlan(const JoinOptions& options);
