#include "Executables/Kelmor/JoinIndexed.hpp"

#include <algorithm>
#include <span>

#include "Utils/ErrorHandling/Require.hpp"

using H5_Objects::IndexedGroup;
using H5_Objects::StepIndex;

namespace {

constexpr std::uint64_t sSmallSetBytes = 1024 * 1024;

}  // namespace

std::vector<Tables::RowRun> ValueRuns(const StepIndex& index, const std::vector<StepRun>& steps) {
  std::vector<Tables::RowRun> values;
  values.reserve(steps.size());
  for (const StepRun& run : steps) {
    const Tables::RowRun of{index.Begin(run.mFirst), index.mEnds[run.mOnePastLast - 1]};
    if (of.Size() > 0) {
      values.push_back(of);
    }
  }
  return values;
}

std::uint64_t CountValues(const StepIndex& index, const std::vector<StepRun>& steps) {
  std::uint64_t values = 0;
  for (const StepRun& run : steps) {
    values += index.mEnds[run.mOnePastLast - 1] - index.Begin(run.mFirst);
  }
  return values;
}

StepIndex KeptIndex(const std::vector<StepIndex>& indices, const SelectedSteps& steps) {
  StepIndex kept;
  kept.mExtras.resize(indices.empty() ? 0 : indices[0].mExtras.size());
  std::uint64_t end = 0;
  for (std::size_t i = 0; i < indices.size(); ++i) {
    const StepIndex& index = indices[i];
    for (const StepRun& run : steps.mRuns[i]) {
      for (std::uint64_t step = run.mFirst; step < run.mOnePastLast; ++step) {
        end += index.Values(step);
        kept.mTimes.push_back(index.mTimes[step]);
        kept.mEnds.push_back(end);
        for (std::size_t k = 0; k < kept.mExtras.size(); ++k) {
          kept.mExtras[k].push_back(index.mExtras[k][step]);
        }
      }
    }
  }
  return kept;
}

void IndexedInputs::ReadInput(const IndexedGroup& set, StepIndex setIndex) {
  if (mIndices.empty()) {
    mTimeDescription = set.GetTimeDescription();
    mDataDescription = set.GetDataDescription();
  }
  mIndices.push_back(std::move(setIndex));
  mHeld.emplace_back();
  const StepIndex& index = mIndices.back();
  const std::uint64_t values = index.Size() == 0 ? 0 : index.mEnds.back();
  const std::uint64_t bytes = values * sizeof(double);
  mStoredBytes.push_back(set.Index().Layout().mStoredBytes + set.Values().Layout().mStoredBytes);
  if (bytes <= sSmallSetBytes && mHeldBytes + bytes <= mRun.mOptions.mCacheSize) {
    mHeld.back().resize(values);
    set.RetrieveValues_(0, values, mHeld.back().data());
    mHeldBytes += bytes;
  }
}

void IndexedInputs::Select() {
  std::vector<MyVector<double>> times;
  for (const StepIndex& index : mIndices) {
    times.emplace_back(index.mTimes);
  }
  mSteps = SelectSteps(mRun.mOptions, times);
}

std::uint64_t IndexedInputs::KeptValues(std::size_t i) const {
  return CountValues(mIndices[i], mSteps.mRuns[i]);
}

std::uint64_t IndexedInputs::KeptValues() const {
  std::uint64_t values = 0;
  for (std::size_t i = 0; i < mIndices.size(); ++i) {
    values += KeptValues(i);
  }
  return values;
}

void IndexedInputs::CopyFromFile(std::size_t i, const IndexedGroup& set,
                                 Tables::ColumnWriter& writer) const {
  const std::uint64_t kept = KeptValues(i);
  // Reads end where the input's chunks end, so that each chunk is inflated once.
  const std::uint64_t chunk = std::max<std::uint64_t>(set.ValuesPerChunk(), 1);
  const std::uint64_t pass = std::max<std::uint64_t>(writer.BlockValues() / chunk, 1) * chunk;
  std::vector<Tables::RowRun> inPass;
  std::uint64_t values = 0;
  const auto read = [&] {
    const auto [place, reads] = writer.Room(values);
    set.RetrieveRuns_(inPass, place, reads);
    mRun.mProgress.Advance(mStoredBytes[i], values, kept);
    inPass.clear();
    values = 0;
  };
  for (const Tables::RowRun& run : ValueRuns(mIndices[i], mSteps.mRuns[i])) {
    std::uint64_t first = run.mFirst;
    while (first < run.mOnePastLast) {
      if (!inPass.empty() && first / pass > inPass.back().mFirst / pass) {
        read();
      }
      const std::uint64_t end = std::min((first / pass + 1) * pass, run.mOnePastLast);
      inPass.push_back({first, end});
      values += end - first;
      first = end;
    }
  }
  if (!inPass.empty()) {
    read();
  }
}

void IndexedInputs::CopyHeld(std::size_t i, Tables::ColumnWriter& writer) const {
  for (const Tables::RowRun& run : ValueRuns(mIndices[i], mSteps.mRuns[i])) {
    writer.Append(std::span(mHeld[i]).subspan(run.mFirst, run.Size()));
  }
  mRun.mProgress.Advance(mStoredBytes[i]);
}
