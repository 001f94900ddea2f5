#include "Utils/Store/IndexedGroup.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "Utils/ErrorHandling/FirstFailure.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/OnFailure.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Store/InsideStore.hpp"

namespace H5_Objects {

namespace {
constexpr char sIndexName[] = "index.dat";
}  // namespace

Step StepIndex::At(std::uint64_t step) const {
  Step at{Begin(step), mEnds[step], {}};
  for (const std::vector<double>& column : mExtras) {
    at.mExtras.push_back(column[step]);
  }
  return at;
}

IndexedGroup::IndexedGroup(const std::string& kind, const std::string& name,
                           const std::string& valuesName, bool existsOnDisk, int verbosity)
    : mKind(kind),
      mLabel("H5_Object" + kind),
      mName(name),
      mTrace(verbosity),
      mGroup(name, existsOnDisk, verbosity),
      mIndex(sIndexName, existsOnDisk, verbosity),
      mValuesName(valuesName),
      mValues(valuesName, existsOnDisk, verbosity) {}

IndexedGroup::~IndexedGroup() {
  if (Vexa::MayCheckInDestructor()) {
    REQUIRE_LABELLED(mLabel, IsObjectOpen()==false,
                     "calling destructor ~" << mLabel << " while its h5-group is open.\n");
  }
}

void IndexedGroup::InitializeTables(const MyVector<std::string>& indexLegend,
                                    const std::string& dataDescription, bool compress,
                                    std::size_t indexChunkRows, std::size_t dataChunkRows) {
  const Vexa::InsideStore inside;
  mIndex.Initialize(indexLegend, compress, indexChunkRows);
  mValues.Initialize(MyVector<std::string>{dataDescription}, compress, dataChunkRows);
  ReportCacheSize();
}

void IndexedGroup::OpenObject(hid_t parentGroupId) {
  const Vexa::ReportAs shared("H5_IndexedGroup");
  mTrace.Line(5, mKind, "::OpenObject(", parentGroupId, ")");
  const bool existedBefore = mGroup.Open(parentGroupId);
  mIndex.OpenObject(mGroup.GroupId());
  mValues.OpenObject(mGroup.GroupId());
  OpenAttributes(existedBefore);
  const std::uint64_t columns = mIndex.GetExtents()[1];
  const std::uint64_t expected = 2 + ExtraColumns();
  REQUIRE_LABELLED(mLabel, columns==expected,
                   "internal error.  Index of " << mName << " has " << columns
                                                << " columns instead of " << expected);
  const std::uint64_t valueColumns = mValues.GetExtents()[1];
  REQUIRE_LABELLED(mLabel, valueColumns==1,
                   "internal error.  Values of " << mName << " have " << valueColumns
                                                 << " columns instead of 1");
  ReportCacheSize();
}

std::vector<std::string> IndexedGroup::ForeignParts() const {
  std::vector<std::string> foreign =
      Vexa::ForeignAttributes(GroupId(), OwnAttribute(), mTrace.Verbosity());
  for (const std::string& name : mGroup.ReadGroupsFromDisk()) {
    if (name != sIndexName && name != mValuesName) {
      foreign.push_back("member '" + name + "'");
    }
  }
  std::ranges::move(PartsOfTables(&H5_Object::ForeignParts), std::back_inserter(foreign));
  return foreign;
}

std::vector<std::string> IndexedGroup::MissingParts() const {
  return PartsOfTables(&H5_Object::MissingParts);
}

std::vector<std::string> IndexedGroup::PartsOfTables(std::vector<std::string> (H5_Object::*parts)()
                                                         const) const {
  std::vector<std::string> found;
  for (const Dat* table : {&mIndex, &mValues}) {
    for (const std::string& part : (table->*parts)()) {
      found.push_back(part + " of " + (table == &mIndex ? sIndexName : mValuesName));
    }
  }
  return found;
}

void IndexedGroup::CloseObject() {
  // What failed to open is not closed.
  if (mValues.IsObjectOpen()) {
    mValues.CloseObject();
  }
  if (mIndex.IsObjectOpen()) {
    mIndex.CloseObject();
  }
  mGroup.CloseObject();
}

void IndexedGroup::DropIds() {
  mGroup.DropIds();
  mIndex.DropIds();
  mValues.DropIds();
}

std::span<double> IndexedGroup::AppendStep(double time, std::span<const double> extras,
                                           std::uint64_t count) {
  const std::size_t begin = mCachedValues.size();
  const std::size_t steps = mCachedSteps.Size();
  // Where memory ends in between, the index must not disagree with the values.
  const OnFailure takeBack([&] {
    mCachedValues.resize(begin);
    mCachedSteps.mTimes.resize(steps);
    mCachedSteps.mEnds.resize(steps);
    for (std::vector<double>& column : mCachedSteps.mExtras) {
      column.resize(std::min(column.size(), steps));
    }
  });
  mCachedValues.resize(begin + count);
  mCachedSteps.mTimes.push_back(time);
  mCachedSteps.mEnds.push_back(mCachedValues.size());
  mCachedSteps.mExtras.resize(extras.size());
  for (std::size_t k = 0; k < extras.size(); ++k) {
    mCachedSteps.mExtras[k].push_back(extras[k]);
  }
  ReportCacheSize();
  return std::span(mCachedValues).subspan(begin);
}

void IndexedGroup::WriteCache() {
  const Vexa::InsideStore inside;
  mTrace.Line(5, mKind, " WriteCache ", mName);
  mGroup.WriteCache();
  const std::uint64_t stepsBefore = mIndex.Layout().mRows;
  WriteIndexImmediately_(mCachedSteps);
  const OnFailure putBack([&] { FirstFailure().Try([&] { mIndex.CutBack(stepsBefore); }); });
  WriteValuesImmediately_(mCachedValues.size(),
                          [this](Tables::ColumnWriter& writer) { writer.Append(mCachedValues); });
  DropCache();
}

void IndexedGroup::Flushed() {
  mIndex.Flushed();
  mValues.Flushed();
}

void IndexedGroup::RolledBack(bool isFileNew) {
  mGroup.RolledBack(isFileNew);
  mIndex.RolledBack(isFileNew);
  mValues.RolledBack(isFileNew);
  ReportCacheSize();
}

void IndexedGroup::DropCache() {
  mIndex.DropCache();
  mValues.DropCache();
  mCachedSteps = {};
  mCachedValues = {};
  ReportCacheSize();
}

void IndexedGroup::WriteIndexImmediately_(const StepIndex& steps) {
  const Vexa::InsideStore inside;
  const std::uint64_t offset = mValues.GetExtents()[0];
  mIndex.WriteManyStepsImmediately_(steps.Size(), [&](Tables::ColumnWriter& writer) {
    writer.Append(steps.mTimes);
    const auto toDouble = [offset](std::uint64_t end) { return static_cast<double>(offset + end); };
    std::ranges::transform(steps.mEnds, writer.Room(steps.Size()).mpValues, toDouble);
    for (const std::vector<double>& extra : steps.mExtras) {
      writer.Append(extra);
    }
  });
}

void IndexedGroup::WriteValuesImmediately_(std::uint64_t count,
                                           const std::function<void(Tables::ColumnWriter&)>& fill) {
  mValues.WriteManyStepsImmediately_(count, fill);
}

IndexedGroup::WholePart IndexedGroup::FindWholePart(std::uint64_t first, std::uint64_t endOfIndex,
                                                    std::uint64_t values) const {
  const std::uint64_t rows = endOfIndex - first;
  const std::uint64_t columns = mIndex.Layout().mColumns;
  std::vector<double> index(rows * columns);
  mIndex.RetrieveColumns_({0, columns, first, rows}, index.data());
  const auto most = static_cast<double>(values);
  std::vector<double> row(columns);
  std::uint64_t whole = 0;
  std::uint64_t written = 0;
  double end = 0;
  for (std::uint64_t r = 0; r < rows; ++r) {
    for (std::uint64_t c = 0; c < columns; ++c) {
      row[c] = index[c * rows + r];
    }
    const double next = row[1];
    const bool isOffset = next >= end && next <= most && next == std::floor(next);
    const bool isStart = r == 0 && first > 0;
    if (!isOffset || !(isStart || IsWholeStep(std::span(row).subspan(2), next - end))) {
      break;
    }
    end = next;
    whole = r + 1;
    const bool isWritten = std::ranges::any_of(row, [](double value) { return value != 0; });
    written = isWritten ? whole : written;
  }
  // Rows that were never written read as zeros, and look like steps without values.
  return {first + (end == most ? whole : written), static_cast<std::uint64_t>(end)};
}

void IndexedGroup::PrepareToAppend() {
  const std::uint64_t steps = mIndex.Layout().mRows;
  const std::uint64_t values = mValues.Layout().mRows;
  // The last two rows tell, at a cost that does not grow with the series.
  const WholePart last = FindWholePart(steps - std::min<std::uint64_t>(steps, 2));
  if (last.mSteps == steps && last.mValues == values) {
    return;
  }
  const WholePart whole = FindWholePart(0);
  mIndex.CutBack(whole.mSteps);
  mValues.CutBack(whole.mValues);
  MyErr << Vexa::ReportContext::Current()
        << " disagrees with itself, as a killed run may leave it. " << steps - whole.mSteps
        << " step(s) and " << values - whole.mValues << " value(s) were dropped, " << whole.mSteps
        << " whole step(s) are left.\n";
}

std::uint64_t IndexedGroup::SizeOfCache() const {
  const std::uint64_t numbers =
      mCachedSteps.Size() * (2 + mCachedSteps.mExtras.size()) + mCachedValues.size();
  return mIndex.SizeOfCache() + mValues.SizeOfCache() + 8 * numbers;
}

std::size_t IndexedGroup::GetNumberOfTimeSteps() const {
  REQUIRE_LABELLED(mLabel, AreAttributesKnown(), "Must call Initialize or OpenObject first");
  return mIndex.GetExtents()[0];
}

std::string IndexedGroup::GetTimeDescription() const {
  REQUIRE_LABELLED(mLabel, AreAttributesKnown(), "Must call Initialize or OpenObject first");
  return mIndex.GetLegend()[0];
}

std::string IndexedGroup::GetDataDescription() const {
  REQUIRE_LABELLED(mLabel, AreAttributesKnown(), "Must call Initialize or OpenObject first");
  return mValues.GetLegend()[0];
}

MyVector<double> IndexedGroup::RetrieveTimes() const {
  return mIndex.RetrieveTimes();
}

std::uint64_t IndexedGroup::CheckedOffset(double offset, std::uint64_t previous) const {
  // The comparison comes before the conversion, which is undefined out of range, and is false for
  // what is not a number.
  const double values = static_cast<double>(mValues.Layout().mRows);
  REQUIRE_LABELLED(mLabel, offset>=0 && offset<=values && offset==std::floor(offset),
                   "Index of " << mName << " holds the offset " << offset << ", but there are "
                       << values << " values");
  const auto whole = static_cast<std::uint64_t>(offset);
  REQUIRE_LABELLED(mLabel, whole>=previous,
                   "Index of " << mName << " decreases from " << previous << " to " << whole);
  return whole;
}

std::vector<double> IndexedGroup::RetrieveIndexColumn(std::uint64_t column,
                                                      std::uint64_t steps) const {
  std::vector<double> values(steps);
  mIndex.RetrieveColumns_({column, 1, 0, steps}, values.data());
  return values;
}

StepIndex IndexedGroup::RetrieveReadableIndex_(std::string& reason) const {
  const std::uint64_t rows = mIndex.CountReadableRows_(reason);
  const std::uint64_t values = mValues.CountReadableRows_(reason);
  const std::uint64_t steps = FindWholePart(0, rows, values).mSteps;
  if (steps < mIndex.Layout().mRows && reason.empty()) {
    reason = "a step is not whole";
  }
  StepIndex index;
  index.mTimes = RetrieveIndexColumn(0, steps);
  for (const double offset : RetrieveIndexColumn(1, steps)) {
    index.mEnds.push_back(static_cast<std::uint64_t>(offset));
  }
  for (std::uint64_t c = 2; c < mIndex.Layout().mColumns; ++c) {
    index.mExtras.push_back(RetrieveIndexColumn(c, steps));
  }
  return index;
}

StepIndex IndexedGroup::RetrieveIndex_() const {
  const std::uint64_t steps = mIndex.Layout().mRows;
  const auto column = [&](std::uint64_t c) { return RetrieveIndexColumn(c, steps); };
  StepIndex index;
  index.mTimes = column(0);
  index.mEnds.reserve(steps);
  std::uint64_t end = 0;
  for (const double offset : column(1)) {
    end = CheckedOffset(offset, end);
    index.mEnds.push_back(end);
  }
  const std::uint64_t values = mValues.Layout().mRows;
  REQUIRE_LABELLED(mLabel, end==values,
                   "internal error.  Index of " << mName << " ends at " << end
                                                << ", but there are " << values << " values");
  for (std::uint64_t c = 2; c < mIndex.Layout().mColumns; ++c) {
    index.mExtras.push_back(column(c));
  }
  return index;
}

std::vector<double> IndexedGroup::RetrieveValuesOf(const StepIndex& index) const {
  std::vector<double> values(index.Size() == 0 ? 0 : index.mEnds.back());
  mValues.RetrieveColumns_({0, 1, 0, values.size()}, values.data());
  return values;
}

Step IndexedGroup::RetrieveStepIndex(std::size_t filestep) const {
  REQUIRE_LABELLED(mLabel, filestep < mIndex.GetExtents()[0],
                   "Access out of bounds.  Requesting filestep=" << filestep
                       << " in a dataset with only " << mIndex.GetExtents()[0] << " steps");
  const std::size_t first = filestep == 0 ? 0 : filestep - 1;
  const MyVector<MyVector<double>> offset =
      mIndex.RetrieveColumns(MyVector<int>{1}, first, filestep + 1);
  Step step{};
  step.mBegin = filestep == 0 ? 0 : CheckedOffset(offset[0][0], 0);
  step.mEnd = CheckedOffset(offset[0][offset[0].Size() - 1], step.mBegin);
  mTrace.Line(5, "offsets for this filestep: ", step.mBegin, " ", step.mEnd);
  for (std::uint64_t c = 2; c < mIndex.Layout().mColumns; ++c) {
    double extra = 0;
    mIndex.RetrieveColumns_({c, 1, filestep, 1}, &extra);
    step.mExtras.push_back(extra);
  }
  mTrace.Line(5, "  now reading data [", step.mBegin, ",", step.mEnd, ")");
  return step;
}

}  // namespace H5_Objects
