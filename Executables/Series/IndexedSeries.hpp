#pragma once

#include "Executables/Series/SteppedSeries.hpp"
#include "Utils/Store/IndexedGroup.hpp"

/// What the series of Coef and Tdm sets share: an index table and one long column of values.
class IndexedSeries : public SteppedSeries {
 public:
  std::uint64_t Bytes() const override;
  std::vector<Property> Properties(bool asInFile) const override;
  H5_Objects::StepIndex KeptIndex() const override;
  std::string RowText(std::size_t i, std::uint64_t row) const override;
  /// The legend of the index in an output.
  virtual MyVector<std::string> OutputIndexLegend() const = 0;
  const std::string& DataDescription() const { return mDataDescription; }
  void Describe(int file, Facts& facts) override;

 protected:
  IndexedSeries(const SeriesRun& run, const Dataset& dataset)
      : SteppedSeries(run, dataset, false) {}

  /// Takes in the open set of a file that agrees with the others. `readIndex` reads its index.
  void TakeInSet(int file, const H5_Objects::IndexedGroup& set, Depth depth,
                 const std::function<H5_Objects::StepIndex()>& readIndex);
  /// Writes index and values to the initialized set of the output.
  void WriteTo(CachedH5File& output, H5_Objects::IndexedGroup& set);

  std::string mTimeDescription;  // of the first file
  std::string mDataDescription;
  std::string mTableWithin;

 private:
  Remains TakeInWhole(int file) override;
  std::string TableWithin() const override { return mTableWithin; }
  /// Lends the open set of a file.
  virtual void VisitSet(int file,
                        const std::function<void(const H5_Objects::IndexedGroup&)>& visit) = 0;
  void VisitTable(int file, const std::function<void(const H5_Objects::Dat&)>& visit) override {
    VisitSet(file, [&visit](const H5_Objects::IndexedGroup& set) { visit(set.Values()); });
  }
  std::vector<Tables::RowRun> RowsOf(std::size_t i,
                                     const std::vector<StepRun>& steps) const override;

  std::vector<H5_Objects::StepIndex> mIndices;  // per input, without times, which are in mTimes
  MyVector<std::string> mIndexLegend;           // of the first file
};
