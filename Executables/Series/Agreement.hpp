// What the inputs of a dataset must have in common to be joined. Each class takes in one input
// after the other and notes which has what, so that a failure tells of all of them at once.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Executables/Series/Inputs.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"
#include "Utils/Store/H5_ObjectTdm.hpp"
#include "Utils/Store/H5_ObjectTxt.hpp"
#include "Utils/Store/H5_ObjectVersion.hpp"

/// What is the same for all kinds: which inputs have which value.
class Agreement {
 public:
  struct Group {
    std::string mValue;       // "2 columns"
    std::vector<int> mFiles;  // that have it, ascending
  };

  explicit Agreement(std::string name) : mName(std::move(name)) {}

  /// Whether all that was taken in is equal.
  bool IsReached() const { return mGroups.size() < 2; }
  /// One for each value; that of the first input is the first.
  const std::vector<Group>& Groups() const { return mGroups; }
  /// What differs, without who has what; empty while nothing does.
  const std::string& Reason() const { return mReason; }
  /// Fails unless the inputs agree; the report ends with the groups. `nameOf` names an input.
  void Require(const std::function<std::string(int)>& nameOf) const;

 protected:
  const std::string& Name() const { return mName; }
  bool IsFirst() const { return mGroups.empty(); }
  /// Notes the value of an input, as text; the first and those that are like it have the same.
  void Add(int file, const std::string& value);
  /// Notes an input that is like the first.
  void AddToFirst(int file) { mGroups.front().mFiles.push_back(file); }
  /// Notes what Require() shall fail with, if it is the first such: a condition, the name of a
  /// source, and a message.
  void Differ(const char* condition, const std::string& label, int line, const std::string& reason);

 private:
  std::string mName;
  std::vector<Group> mGroups;
  std::string mReason;
  const char* mCondition = "";
  std::string mLabel;
  int mLine = 0;
};

/// "1.h5, 2.h5, 3.h5 and 4 more": about `most` of the names.
std::string ListNames(const std::vector<std::string>& names, std::size_t most);

/// The number of columns of a table, which also has the first input's legend.
class TableAgreement : public Agreement {
 public:
  using Agreement::Agreement;
  /// Whether the input is like the first. Fails on a table without columns.
  bool Take(const H5_Objects::Dat& dat, int file);
  int Columns() const { return Ncols; }
  const MyVector<std::string>& Legend() const { return mLegend; }

 private:
  int Ncols = 0;  // named as reports show it; 0 before the first input
  MyVector<std::string> mLegend;
};

/// The structure of the tensors of a series, and the dimension of their meshes.
class TensorAgreement : public Agreement {
 public:
  using Agreement::Agreement;
  /// Whether the input is like the first.
  bool Take(const H5_Objects::Tdm& tdm, int file);
  /// Null before the first input.
  const std::shared_ptr<const TensorStructure>& Structure() const { return mpStructure; }
  int DataMeshDim() const { return mDataMeshDim; }

 private:
  std::shared_ptr<const TensorStructure> mpStructure;
  int mDataMeshDim = 0;
};

/// Number and history of a version record.
class VersionAgreement : public Agreement {
 public:
  using Agreement::Agreement;
  /// Whether the input is like the first.
  bool Take(const H5_Objects::Version& ver, int file);
  unsigned long Number() const { return version_number; }
  const H5_Objects::Version::History& History() const { return version_history; }

 private:
  unsigned long version_number = 0;  // both named as reports show them
  H5_Objects::Version::History version_history;
};

/// Hands the dataset in all inputs that hold it to `read`, one after the other, while they agree.
/// Of the others only what must agree is looked at; then fails.
template <class KIND, class AGREEMENT, class Read>
void VisitAgreeing(Inputs& inputs, const std::vector<int>& holders, const std::string& name,
                   AGREEMENT& agreement, const Read& read) {
  for (const int file : holders) {
    inputs.Visit<KIND>(file, name, [&](const KIND& object) {
      if (agreement.Take(object, file) && agreement.IsReached()) {
        read(object);
      }
    });
  }
  agreement.Require([&inputs](int file) { return inputs[file].Filename(); });
}

/// Fails if the file lacks the version record but has one under a name that the record's name, read
/// as a glob, matches.
void RequireNoSimilarRecord(const CachedH5File& file, const std::string& name);

/// The text of one input. Fails on one that a text in the output cannot hold.
std::string TextOf(H5_Objects::Txt& txt);
