#pragma once

#include "Executables/Series/SteppedSeries.hpp"

/// A table with a row per step, whose first column is the time.
class TableSeries : public SteppedSeries {
 public:
  using Object = H5_Objects::Dat;
  TableSeries(const SeriesRun& run, const Dataset& dataset) : SteppedSeries(run, dataset, true) {}

  void TakeIn(int file, Depth depth) override;
  std::uint64_t Bytes() const override;
  std::vector<Property> Properties(bool /*asInFile*/) const override {
    return {{"legend", mLegend}};
  }
  const MyVector<std::string>& Legend() const { return mLegend; }
  std::string RowText(std::size_t i, std::uint64_t row) const override;
  std::string ColumnText(std::uint64_t column) const override;
  void Join(CachedH5File& output) override;
  void Describe(int file, Facts& facts) override;

 private:
  bool Agrees(int file, const Object& dat, Depth depth);
  void VisitTable(int file, const std::function<void(const Object&)>& visit) override {
    Visit<Object>(file, visit);
  }
  void Write(CachedH5File& output) override;
  Remains TakeInWhole(int file) override;

  int Ncols = 0;  // is named as reports show it
  MyVector<std::string> mLegend;
};
