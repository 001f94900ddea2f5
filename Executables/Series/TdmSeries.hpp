#pragma once

#include "Executables/Series/IndexedSeries.hpp"
#include "Utils/Store/H5_ObjectTdm.hpp"

/// A series of tensors on meshes. The files must have the same structure of the tensors and the
/// same dimension of their meshes.
class TdmSeries : public IndexedSeries {
 public:
  using Object = H5_Objects::Tdm;
  TdmSeries(const SeriesRun& run, const Dataset& dataset) : IndexedSeries(run, dataset) {}

  void TakeIn(int file, Depth depth) override;
  std::vector<Property> Properties(bool asInFile) const override;
  /// Of the first file, which must have been taken in.
  const TensorStructure& Structure() const { return *mpStructure; }
  int DataMeshDim() const { return mDataMeshDim; }
  void Join(CachedH5File& output) override;
  void Describe(int file, Facts& facts) override;

 private:
  bool Agrees(int file, const Object& tdm);
  MyVector<std::string> OutputIndexLegend() const override {
    return Object::IndexLegend(mTimeDescription, mDataMeshDim);
  }
  void VisitSet(int file,
                const std::function<void(const H5_Objects::IndexedGroup&)>& visit) override {
    Visit<Object>(file, visit);
  }
  void PrintSelection() const override;
  void Write(CachedH5File& output) override;

  std::shared_ptr<const TensorStructure> mpStructure;  // null before the first file
  int mDataMeshDim = 0;
};
