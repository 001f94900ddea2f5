// What the kinds that are a time series of blocks of values share: a group that holds an index
// table, "index.dat", with a row per step, and a table of one column with the values of all steps
// one after the other. Column 0 of the index is the time, column 1 the number of values up to and
// including the step, and further columns are the kind's own.
#pragma once

#include <hdf5.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Utils/Containers/MyVector.hpp"
#include "Utils/ErrorHandling/Trace.hpp"
#include "Utils/Store/H5_Object.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"
#include "Utils/Store/H5_ObjectDir.hpp"

#pragma GCC visibility push(default)

namespace H5_Objects {

/// A Step is a row of an index table: the step has values [mBegin, mEnd).
struct Step {
  std::uint64_t mBegin;
  std::uint64_t mEnd;
  std::vector<double> mExtras;  // the kind's own columns
};

/// A StepIndex is an index table: step i has values [mEnds[i-1], mEnds[i]), with 0 before the
/// first.
struct StepIndex {
  std::vector<double> mTimes;
  std::vector<std::uint64_t> mEnds;
  std::vector<std::vector<double>> mExtras;  // the kind's own columns, one vector per column

  std::uint64_t Size() const { return mTimes.size(); }
  std::uint64_t Begin(std::uint64_t step) const { return step == 0 ? 0 : mEnds[step - 1]; }
  std::uint64_t Values(std::uint64_t step) const { return mEnds[step] - Begin(step); }
  Step At(std::uint64_t step) const;
};

class IndexedGroup : public H5_Object {
 public:
  void OpenObject(hid_t parentGroupId) override;
  void SetAddress(haddr_t address) override { mGroup.SetAddress(address); }
  void CloseObject() override;
  void DropIds() override;
  bool IsObjectOpen() const override { return mGroup.IsObjectOpen(); }
  bool AreAttributesKnown() const override { return mIndex.AreAttributesKnown(); }
  void WriteCache() override;
  void DropCache() override;
  void Flushed() override;
  void RolledBack(bool isFileNew) override;
  /// Cuts both tables back to the last whole step, with a notice through MyErr, if they disagree.
  void PrepareToAppend() override;
  std::uint64_t NTimeStepsCached() const override { return mCachedSteps.Size(); }
  std::uint64_t SizeOfCache() const override;
  std::uint64_t StepsInFile() const override { return mIndex.StepsInFile(); }
  std::vector<std::string> ForeignParts() const override;
  std::vector<std::string> MissingParts() const override;

  /// Returns the number of steps, waiting ones in the index table included. This and the
  /// descriptions fail with "Must call Initialize or OpenObject first".
  std::size_t GetNumberOfTimeSteps() const;
  std::string GetTimeDescription() const;
  std::string GetDataDescription() const;
  /// Reads the times of all steps in the file.
  MyVector<double> RetrieveTimes() const;

  /// Return the two tables, which stay this object's and are open while it is.
  const Dat& Index() const { return mIndex; }
  const Dat& Values() const { return mValues; }

  /// Reads the whole index, checked: offsets are whole, never decrease, and end where the values
  /// end.
  StepIndex RetrieveIndex_() const;
  /// Reads as much of the index as belongs to whole steps, all of whose values can be read. Why
  /// there are not more of them goes to `reason`.
  StepIndex RetrieveReadableIndex_(std::string& reason) const;

  /// Has a new set take its values from other files; see Dat::SetVirtual. Its index is its own.
  void SetVirtualValues(Tables::VirtualTable table) { mValues.SetVirtual(std::move(table)); }

  /// Write steps, and values, at once, bypassing the cache. mEnds count from the first value that
  /// is written along with these steps; the values may follow in several calls.
  void WriteIndexImmediately_(const StepIndex& steps);
  void WriteValuesImmediately_(std::uint64_t count,
                               const std::function<void(Tables::ColumnWriter&)>& fill);

 protected:
  /// `kind` is the class's name: "Coef" traces as "Coef::..." and reports as "H5_ObjectCoef", also
  /// from what is shared here.
  IndexedGroup(const std::string& kind, const std::string& name, const std::string& valuesName,
               bool existsOnDisk, int verbosity);
  /// Ends the process if the group is still open.
  ~IndexedGroup() override;

  /// Columns of the index besides time and offset; known once the group's attributes are.
  virtual std::uint64_t ExtraColumns() const = 0;
  void InitializeTables(const MyVector<std::string>& indexLegend,
                        const std::string& dataDescription, bool compress,
                        std::size_t indexChunkRows, std::size_t dataChunkRows);

  /// Whether a step can have that many values, from what its further columns say.
  virtual bool IsWholeStep(std::span<const double> /*extras*/, double /*values*/) const {
    return true;
  }

  /// Adds a step to the cache: reserves room for `count` values, which the caller fills.
  std::span<double> AppendStep(double time, std::span<const double> extras, std::uint64_t count);

  /// Returns the name of the group's attribute that the kind writes; empty if it writes none.
  virtual std::string OwnAttribute() const { return ""; }
  /// Does the kind's own part of opening the group: its attributes. Called when the group is open.
  virtual void OpenAttributes(bool /*existedBefore*/) {}

  /// Reads the values of all steps of the open object's index.
  std::vector<double> RetrieveValuesOf(const StepIndex& index) const;

  /// Reads the offsets of one step, and its further columns; fails if there is no such step.
  Step RetrieveStepIndex(std::size_t filestep) const;

  std::uint64_t CachedValues() const { return mCachedValues.size(); }
  hid_t GroupId() const { return mGroup.GroupId(); }

  std::string mKind;
  std::string mLabel;  // in reports
  std::string mName;
  Trace mTrace;

 private:
  // Names parts of both tables as those of their table.
  std::vector<std::string> PartsOfTables(std::vector<std::string> (H5_Object::*parts)()
                                             const) const;
  // Counts the steps that are whole, and the values up to the end of the last of them.
  struct WholePart {
    std::uint64_t mSteps;
    std::uint64_t mValues;
  };

  std::uint64_t CheckedOffset(double offset, std::uint64_t previous) const;
  // Looks at the rows of the index from `first` on. Row `first` gives only its offset, unless it is
  // the very first row, since the length of its step is not known.
  WholePart FindWholePart(std::uint64_t first) const {
    return FindWholePart(first, mIndex.Layout().mRows, mValues.Layout().mRows);
  }
  // Looks at no more than these rows and values.
  WholePart FindWholePart(std::uint64_t first, std::uint64_t endOfIndex,
                          std::uint64_t values) const;
  std::vector<double> RetrieveIndexColumn(std::uint64_t column, std::uint64_t steps) const;

  Dir mGroup;
  Dat mIndex;
  std::string mValuesName;
  Dat mValues;
  StepIndex mCachedSteps;
  std::vector<double> mCachedValues;
};

}  // namespace H5_Objects

#pragma GCC visibility pop
