#include "Executables/Series/IndexedSeries.hpp"

#include <algorithm>
#include <utility>

#include "Utils/Process/Formatting.hpp"

using H5_Objects::IndexedGroup;
using H5_Objects::StepIndex;

void IndexedSeries::TakeInSet(int file, const IndexedGroup& set, Depth depth,
                              const std::function<StepIndex()>& readIndex) {
  if (depth == Depth::TimesIfReadable) {
    set.Values().RequireReadable();
  }
  if (depth != Depth::Agreement) {
    StepIndex index = readIndex();
    Input input = ReadInput(file, set.Values(), depth);
    input.mStoredBytes += set.Index().Layout().mStoredBytes;
    mInputs.push_back(std::move(input));
    mTimes.push_back(MyVector<double>(std::exchange(index.mTimes, {})));
    mIndices.push_back(std::move(index));
    Note(file, set, {set.GetTimeDescription(), set.GetDataDescription()}, depth);
  }
  if (mIndexLegend.empty()) {
    mIndexLegend = set.Index().GetLegend();
    mTimeDescription = set.GetTimeDescription();
    mDataDescription = set.GetDataDescription();
    mTableWithin = "/" + set.Values().LinkName();
  }
}

Series::Remains IndexedSeries::TakeInWhole(int file) {
  TakeIn(file, Depth::Agreement);
  Remains remains;
  VisitSet(file, [&](const IndexedGroup& set) {
    std::string reason;
    StepIndex index = set.RetrieveReadableIndex_(reason);
    mTimes.push_back(MyVector<double>(std::exchange(index.mTimes, {})));
    mIndices.push_back(std::move(index));
    mInputs.push_back(ReadInput(file, set.Values(), Depth::Times));
    remains = RemainsOf(set.Index(), reason);
  });
  return remains;
}

std::vector<Series::Property> IndexedSeries::Properties(bool asInFile) const {
  return {{"description of the time", mTimeDescription},
          {"legend of the index", asInFile ? mIndexLegend : OutputIndexLegend()},
          {"description of the data", mDataDescription}};
}

std::uint64_t IndexedSeries::Bytes() const {
  const auto steps = static_cast<std::uint64_t>(Steps().mKept);
  return (steps * mIndexLegend.size() + KeptRows()) * sizeof(double);
}

// The values of steps lie one after the other; steps without values leave no run.
std::vector<Tables::RowRun> IndexedSeries::RowsOf(std::size_t i,
                                                  const std::vector<StepRun>& steps) const {
  std::vector<Tables::RowRun> values;
  for (const StepRun& run : steps) {
    const Tables::RowRun ofRun{mIndices[i].Begin(run.mFirst),
                               mIndices[i].mEnds[run.mOnePastLast - 1]};
    if (ofRun.Size() > 0) {
      values.push_back(ofRun);
    }
  }
  return values;
}

StepIndex IndexedSeries::KeptIndex() const {
  StepIndex kept;
  kept.mExtras.resize(mIndexLegend.size() - 2);
  std::uint64_t end = 0;
  for (std::size_t i = 0; i < mIndices.size(); ++i) {
    for (const StepRun& run : Steps().mRuns[i]) {
      for (std::uint64_t step = run.mFirst; step < run.mOnePastLast; ++step) {
        end += mIndices[i].Values(step);
        kept.mTimes.push_back(mTimes[i][step]);
        kept.mEnds.push_back(end);
        for (std::size_t k = 0; k < kept.mExtras.size(); ++k) {
          kept.mExtras[k].push_back(mIndices[i].mExtras[k][step]);
        }
      }
    }
  }
  return kept;
}

std::string IndexedSeries::RowText(std::size_t i, std::uint64_t row) const {
  const StepIndex& index = mIndices[i];
  const auto end = std::ranges::upper_bound(index.mEnds, row);
  const auto step = static_cast<std::size_t>(end - index.mEnds.begin());
  return "value " + std::to_string(row - index.Begin(step)) + " of step " + std::to_string(step) +
         " (t = " + RoundTrip(mTimes[i][step]) + ")";
}

void IndexedSeries::Describe(int file, Facts& facts) {
  VisitSet(file, [&facts](const IndexedGroup& set) {
    facts.mShape = {set.Values().Layout().mRows};
    facts.mLegends = {set.GetTimeDescription(), set.GetDataDescription()};
    facts.AddStorage(set.Index());
    facts.AddStorage(set.Values());
    facts.AddSegments(set.Values().Layout());
    facts.SetTimes(set.RetrieveTimes());
  });
}

void IndexedSeries::WriteTo(CachedH5File& output, IndexedGroup& set) {
  if (mView) {
    set.SetVirtualValues(*mView);
  }
  output.WriteImmediately(Name(), [&] {
    set.WriteIndexImmediately_(KeptIndex());
    set.WriteValuesImmediately_(mView ? 0 : KeptRows(),
                                [this](Tables::ColumnWriter& writer) { WriteRows(writer); });
  });
}
