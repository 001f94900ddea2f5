#include "Executables/Kelmor/JoinIndexed.hpp"

#include <algorithm>
#include <numeric>

#include "Utils/ErrorHandling/Require.hpp"

using H5_Objects::IndexedGroup;
using H5_Objects::StepIndex;

namespace {

constexpr std::uint64_t sSmallSetBytes = 1024 * 1024;
// Values read or written at a time, unless a chunk is longer.
constexpr std::uint64_t sBlockValues = 2 * 1024 * 1024;

}  // namespace

std::vector<StepRun> ValueRuns(const StepIndex& index, const std::vector<StepRun>& steps) {
  std::vector<StepRun> values;
  values.reserve(steps.size());
  for (const StepRun& run : steps) {
    values.push_back({index.Begin(run.mFirst), index.mEnds[run.mOnePastLast - 1]});
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
                                 ValueWriter& writer) const {
  const std::uint64_t kept = KeptValues(i);
  // Reads end where the input's chunks end, so that each chunk is inflated once.
  const std::uint64_t chunk = std::max<std::uint64_t>(set.ValuesPerChunk(), 1);
  const std::uint64_t pass = std::max<std::uint64_t>(sBlockValues / chunk, 1) * chunk;
  for (const StepRun& run : ValueRuns(mIndices[i], mSteps.mRuns[i])) {
    std::uint64_t first = run.mFirst;
    while (first < run.mOnePastLast) {
      const std::uint64_t count = std::min(pass - first % pass, run.mOnePastLast - first);
      set.RetrieveValues_(first, count, writer.Room(count));
      mRun.mProgress.Advance(mStoredBytes[i], count, kept);
      first += count;
    }
  }
}

void IndexedInputs::CopyHeld(std::size_t i, ValueWriter& writer) const {
  for (const StepRun& run : ValueRuns(mIndices[i], mSteps.mRuns[i])) {
    if (run.Size() > 0) {
      std::copy_n(mHeld[i].data() + run.mFirst, run.Size(), writer.Room(run.Size()));
    }
  }
  mRun.mProgress.Advance(mStoredBytes[i]);
}

IndexedInputs::ValueWriter::ValueWriter(IndexedGroup& output)
    : mOutput(output),
      mChunkValues(output.ValuesPerChunk()),
      mBlockValues(std::max<std::uint64_t>(sBlockValues / mChunkValues, 1) * mChunkValues) {}

double* IndexedInputs::ValueWriter::Room(std::uint64_t count) {
  if (mSize >= mBlockValues) {
    WriteFullChunks();
  }
  if (mSize + count > mCapacity) {
    // What a block needs and no more: doubling would hold a long chunk twice.
    mCapacity = std::max(mBlockValues, mSize + count);
    auto larger = std::make_unique_for_overwrite<double[]>(mCapacity);
    std::copy_n(mValues.get(), mSize, larger.get());
    mValues = std::move(larger);
  }
  double* room = mValues.get() + mSize;
  mSize += count;
  return room;
}

void IndexedInputs::ValueWriter::WriteFullChunks() {
  const std::uint64_t full = mSize / mChunkValues * mChunkValues;
  mOutput.WriteValuesImmediately_({mValues.get(), full});
  std::copy(mValues.get() + full, mValues.get() + mSize, mValues.get());
  mSize -= full;
}

void IndexedInputs::ValueWriter::Finish() {
  mOutput.WriteValuesImmediately_({mValues.get(), mSize});
  mValues.reset();
}
