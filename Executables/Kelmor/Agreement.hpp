// What the inputs of a dataset must have in common to be joined. Each class takes in one input
// after the other, and fails at one that differs from the first.
#pragma once

#include <memory>
#include <string>

#include "Executables/Kelmor/Inputs.hpp"
#include "Utils/H5/H5_ObjectDat.hpp"
#include "Utils/H5/H5_ObjectTdm.hpp"
#include "Utils/H5/H5_ObjectTxt.hpp"
#include "Utils/H5/H5_ObjectVersion.hpp"

/// The number of columns of a table, which also has the first input's legend.
class TableAgreement {
 public:
  explicit TableAgreement(std::string name) : mName(std::move(name)) {}
  void Take(const H5_Objects::Dat& dat);
  int Columns() const { return Ncols; }
  const MyVector<std::string>& Legend() const { return mLegend; }

 private:
  std::string mName;
  int Ncols = 0;  // named as reports show it; 0 before the first input
  MyVector<std::string> mLegend;
};

/// The structure of the tensors of a series, and the dimension of their meshes.
class TensorAgreement {
 public:
  explicit TensorAgreement(std::string name) : mName(std::move(name)) {}
  void Take(const H5_Objects::Tdm& tdm);
  /// Null before the first input.
  const std::shared_ptr<const TensorStructure>& Structure() const { return mpStructure; }
  int DataMeshDim() const { return mDataMeshDim; }

 private:
  std::string mName;
  std::shared_ptr<const TensorStructure> mpStructure;
  int mDataMeshDim = 0;
};

/// Number and history of a version record.
class VersionAgreement {
 public:
  explicit VersionAgreement(std::string name) : mName(std::move(name)) {}
  void Take(const H5_Objects::Version& ver);
  unsigned long Number() const { return version_number; }
  const H5_Objects::Version::History& History() const { return version_history; }

 private:
  std::string mName;
  bool mIsFirst = true;
  unsigned long version_number = 0;  // both named as reports show them
  H5_Objects::Version::History version_history;
};

/// Fails if the file lacks the version record but has one under a name that the record's name, read
/// as a glob, matches.
void RequireNoSimilarRecord(const CachedH5File& file, const std::string& name);

/// The text of one input. Fails on one that a text in the output cannot hold.
std::string TextOf(H5_Objects::Txt& txt);
