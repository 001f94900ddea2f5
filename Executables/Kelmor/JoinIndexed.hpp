// What the joins of Coef and Tdm sets share: both are an index table and one long column of values,
// of which the kept steps are copied as runs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Executables/Kelmor/Join.hpp"
#include "Utils/Store/IndexedGroup.hpp"
#include "Utils/Tables/ColumnWriter.hpp"
#include "Utils/Tables/RowRun.hpp"

/// Where the values of runs of steps lie, as runs of values; steps without values leave none.
std::vector<Tables::RowRun> ValueRuns(const H5_Objects::StepIndex& index,
                                      const std::vector<StepRun>& steps);
/// How many they are.
std::uint64_t CountValues(const H5_Objects::StepIndex& index, const std::vector<StepRun>& steps);

/// The index of the kept steps of all inputs, as it stands in the output.
H5_Objects::StepIndex KeptIndex(const std::vector<H5_Objects::StepIndex>& indices,
                                const SelectedSteps& steps);

/// One set in all files that hold it. The indices are in memory; so are the values of small sets,
/// which saves opening them twice.
class IndexedInputs {
 public:
  IndexedInputs(JoinRun& run, const JoinTask& task) : mRun(run), mTask(task) {}

  /// Takes in the next holder's set and its index.
  void ReadInput(const H5_Objects::IndexedGroup& set, H5_Objects::StepIndex setIndex);

  /// Runs the selection over what was taken in.
  void Select();
  void ReportSelection() const { PrintSelection(mRun, mTask, mSteps); }

  const std::string& TimeDescription() const { return mTimeDescription; }
  const std::string& DataDescription() const { return mDataDescription; }
  std::int64_t KeptSteps() const { return mSteps.mKept; }
  /// Values of the kept steps: of the i-th holder, and of all.
  std::uint64_t KeptValues(std::size_t i) const;
  std::uint64_t KeptValues() const;
  std::size_t Size() const { return mIndices.size(); }

  /// Writes index and values of the kept steps to the open set in the output. Besides the blocks of
  /// the writer, only small sets are held.
  template <class KIND>
  void Write(KIND& output) {
    output.WriteIndexImmediately_(KeptIndex(mIndices, mSteps));
    output.WriteValuesImmediately_(KeptValues(), [&](Tables::ColumnWriter& writer) {
      for (std::size_t i = 0; i < mIndices.size(); ++i) {
        if (KeptValues(i) == 0 || !mHeld[i].empty()) {
          CopyHeld(i, writer);
        } else {
          mRun.mInputs.Visit<KIND>(mTask.mHolders[i], mTask.mName,
                                   [&](const KIND& set) { CopyFromFile(i, set, writer); });
        }
      }
    });
  }

 private:
  void CopyFromFile(std::size_t i, const H5_Objects::IndexedGroup& set,
                    Tables::ColumnWriter& writer) const;
  void CopyHeld(std::size_t i, Tables::ColumnWriter& writer) const;

  JoinRun& mRun;
  const JoinTask& mTask;
  std::string mTimeDescription;
  std::string mDataDescription;
  std::vector<H5_Objects::StepIndex> mIndices;  // one per holder
  std::vector<std::vector<double>> mHeld;       // values of small sets, else empty
  std::uint64_t mHeldBytes = 0;
  std::vector<std::uint64_t> mStoredBytes;  // on disk, one per holder
  SelectedSteps mSteps;
};
