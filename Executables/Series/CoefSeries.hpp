#pragma once

#include "Executables/Series/IndexedSeries.hpp"
#include "Utils/Store/H5_ObjectCoef.hpp"

class CoefSeries : public IndexedSeries {
 public:
  using Object = H5_Objects::Coef;
  CoefSeries(const SeriesRun& run, const Dataset& dataset) : IndexedSeries(run, dataset) {}

  void TakeIn(int file, Depth depth) override;

 private:
  MyVector<std::string> OutputIndexLegend() const override {
    return Object::IndexLegend(mTimeDescription);
  }
  void VisitSet(int file,
                const std::function<void(const H5_Objects::IndexedGroup&)>& visit) override {
    Visit<Object>(file, visit);
  }
  void Write(CachedH5File& output) override;
};
