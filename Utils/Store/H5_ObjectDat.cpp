#include "Utils/Store/H5_ObjectDat.hpp"

#include <algorithm>
#include <ostream>
#include <utility>

#include "Utils/ErrorHandling/OnFailure.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/Process/Memory.hpp"
#include "Utils/Store/InsideStore.hpp"
#include "Utils/Tables/ReadableRows.hpp"

template struct Factory::Register<H5_Objects::Dat>;

namespace H5_Objects {

namespace {

constexpr std::size_t sManyValues = std::size_t{1} << 20;  // in one call, which fill large pages
constexpr std::size_t sMostSpare = std::size_t{1} << 24;   // values

// Room that a table with many values gave up: to fill it again takes less than to be given other.
// It is never destroyed, since the last tables are written when the process ends.
std::vector<double>& Spare() {
  static auto& spare = *new std::vector<double>;
  return spare;
}

// Makes room for so many values in all, which are about to be filled.
void MakeRoom(std::vector<double>& values, std::size_t needed) {
  if (Spare().capacity() >= needed) {
    Spare().assign(values.begin(), values.end());
    values = std::exchange(Spare(), {});
    return;
  }
  // A large page more, so that the end is in one, too.
  values.reserve(std::max(needed, 2 * values.capacity()) + sManyValues / 4);
  double* const fresh = values.data() + values.size();
  Vexa::AskForLargePages(fresh, sizeof(double) * (values.capacity() - values.size()));
}

std::uint64_t Characters(const MyVector<std::string>& strings) {
  std::uint64_t characters = 0;
  for (const std::string& text : strings) {
    characters += text.size();
  }
  return characters;
}

}  // namespace

std::string LegacyName(const std::string& name) {
  const std::string word = "Dimensionful";
  const bool hasOlderName =
      name == word + "InertialSpin.dat" || name == word + "InertialSpinMag.dat";
  return hasOlderName ? "Dimensionfull" + name.substr(word.size()) : name;
}

std::string Dat::Help() {
  return "H5_Object::Dat                                                 \n"
         "  Writes one 2-D rectangular data-set into a H5 file. The rows \n"
         "  of the data are thought of different time-steps, and it is   \n"
         "  possible to append more rows.                                \n";
}

Dat::Dat(const std::string& name, bool existsOnDisk, int verbosity)
    : DataSet("H5_ObjectDat", name, existsOnDisk, verbosity) {
  mTrace.Line(5, "Dat::Dat(\"", name, "\", ... existsOnDisk=", existsOnDisk);
}

Dat::~Dat() {
  if (Vexa::MayCheckInDestructor()) {
    const herr_t err = mMy_id >= 0 ? H5Dclose(mMy_id) : 0;
    mMy_id = -1;
    REQUIRE(0==err, "H5Dclose failed");
    REQUIRE(mCachedData.size()==0,
            "Internal error. " << "Attempting to destruct H5_ObjectDat with non-empty Cache");
  }
}

void Dat::Initialize(const MyVector<std::string>& legend, bool compress, std::size_t chunkRows) {
  const Vexa::InsideStore inside;
  REQUIRE(!IsInitialized(), "DataSet already initialized");
  mCompress = compress;
  mLegends = legend;
  mLegendCharacters = Characters(legend);
  mExtents = {0, legend.size()};
  // Chunks of even length: one that is nearly empty takes as much as a full one.
  const unsigned long long rows = std::max<std::size_t>(chunkRows, 1);
  const unsigned long long chunks = (rows - 1) / sMostChunkRows + 1;
  mChunkRows = (rows - 1) / chunks + 1;
  ReportCacheSize();
}

void Dat::OpenObject(hid_t parentGroupId) {
  const Vexa::ReportAs label("H5_ObjectDat");
  REQUIRE(IsInitialized(), "Called OpenObject on a H5_Object::Dat, which is not initialized");
  std::string group_name = mName;
  bool h5_exists = LinkExists(parentGroupId, group_name, mAddress, mTrace);
  if (h5_exists != mExistsInFile && LegacyName(mName) != mName) {
    group_name = LegacyName(mName);
    h5_exists = LinkExists(parentGroupId, group_name, mAddress, mTrace);
  }
  RequireConsistentExistence(h5_exists);
  if (h5_exists) {
    mTrace.Line(3, "H5_ObjectDat open ", mName);
    Open(parentGroupId, group_name, 4, "Opening of dataset " + group_name + " failed");
    TakeLayout();
    REQUIRE(mExtents.Size()==2 && static_cast<unsigned int>(mLegends.Size())==mExtents[1],
            "internal consistency error");
  } else {
    REQUIRE(group_name==mName,
            "Inconsistency in legacy support.  Should never be asked to create a new dataset with "
            "the old group_name="
                << group_name);
    mExtents = {0, mLegends.size()};
    const bool isVirtual = !mVirtual.mMappings.empty();
    mMy_id = isVirtual ? Tables::CreateVirtualTable(parentGroupId, group_name, mVirtual, mTrace)
                       : Create(parentGroupId, group_name, {0, mLegends.size()}, {mChunkRows, 1},
                                H5T_NATIVE_DOUBLE, mCompress);
    REQUIRE(mMy_id>=0, "CreateDataSet failed");
    mTrace.Line(2, "Dat: Create '", group_name, "' with ", mLegends.size(), " column(s)");
    mLayout = isVirtual ? Tables::TableLayout() : Tables::ReadTableLayout(mMy_id, mName);
    mExistsInFile = mIsLayoutKnown = true;
    Vexa_H5::AttachStringsToAttributes(mMy_id, "Legend", mLegends, mTrace.Verbosity());
    ReportCacheSize();
  }
}

void Dat::TakeLayout() {
  const bool isFirst = mExtents.empty();
  Tables::TableLayout before = std::exchange(mLayout, Tables::ReadTableLayout(mMy_id, mName));
  mExtents = {mLayout.mRows, mLayout.mColumns};
  mRowsFlushed = isFirst ? mLayout.mRows : mRowsFlushed;
  // What was looked at once in a file that this process writes need not be looked at again, unless
  // somebody has put another table in its place.
  before.mRows = mLayout.mRows;
  mLayout.mStoredBytes = before.mStoredBytes;
  if (mIsLayoutKnown && mLayout == before && IsFileWritable()) {
    return;
  }
  Tables::CheckStorage(mMy_id, mLayout, mName);
  mLegends = Vexa_H5::RetrieveStringsFromAttributes(mMy_id, "Legend", true, mTrace.Verbosity());
  if (mLegends.empty()) {
    mLegends.assign(MV::Size(mLayout.mColumns));
    for (std::uint64_t c = 0; c < mLayout.mColumns; ++c) {
      mLegends[c] = "undef " + std::to_string(c);
    }
  }
  mLegendCharacters = Characters(mLegends);
  mIsLayoutKnown = true;
}

void Dat::Append(const MyVector<double>& data) {
  const Vexa::InsideStore inside;
  REQUIRE(IsInitialized(), "H5_Objects::Dat must be initialized before appending\nName=" << mName);
  if (AreAttributesKnown()) {
    REQUIRE(static_cast<int>(mExtents[1])==data.Size(),
            "data being appended inconsistent with Extents\n"
                << "Name=" << mName << ", Extents=" << mExtents << ", data.Size()=" << data.Size());
  }
  if (!mCachedData.empty()) {
    REQUIRE(mNumberOfColumnsPerRow==data.size(),
            "data being appended must be consistent with previously appended data");
  }
  Append_(std::span(data.data(), data.size()), data.size());
}

void Dat::Append_(std::span<const double> rows, std::uint64_t columns) {
  const Vexa::InsideStore inside;
  REQUIRE(!AreAttributesKnown() || mExtents[1]==columns,
          "A row of " << columns << " columns was to be appended to a table of " << mExtents[1]
                      << "\nName=" << mName);
  if (const std::size_t needed = mCachedData.size() + rows.size();
      needed > mCachedData.capacity() && rows.size() >= sManyValues) {
    MakeRoom(mCachedData, needed);
  }
  mCachedData.insert(mCachedData.end(), rows.begin(), rows.end());
  mNumberOfColumnsPerRow = columns;
  mTrace.Line(6, "Dat::Append sizeof(double)*data.Size()=", sizeof(double) * rows.size());
  ReportCacheSize();
}

void Dat::WriteCache() {
  const Vexa::InsideStore inside;
  mTrace.Line(4, "Dat WriteCache ", mName);
  REQUIRE(IsObjectOpen(), "Consistency error: Called WriteCache on a closed object");
  REQUIRE(mExtents.Size()==2, "Internal error");
  if (mCachedData.empty()) {
    return;
  }
  REQUIRE(mNumberOfColumnsPerRow == mLegends.size(),
          "The CachedData has entries of length" << mNumberOfColumnsPerRow
                                                 << ",\nbut Legends has length" << mLegends.size());
  WriteCacheDetail(mCachedData.size() / mNumberOfColumnsPerRow,
                   [this](const Tables::OpenTable& table) {
                     Tables::WriteRows(table, mExtents[0], mCachedData);
                   });
  DropCache();
}

void Dat::DropCache() {
  const std::size_t room = mCachedData.capacity();
  if (room >= sManyValues && room <= sMostSpare && room > Spare().capacity()) {
    mCachedData.swap(Spare());
    Spare().clear();
  }
  std::vector<double>().swap(mCachedData);
  mNumberOfColumnsPerRow = 1;
  mLegendCharacters = 0;  // or a table that cannot be created would wait for ever
  ReportCacheSize();
}

void Dat::RolledBack(bool isFileNew) {
  DataSet::RolledBack(isFileNew);
  if (isFileNew) {
    // It is created like the one that was there, once there are rows for it.
    mRowsFlushed = mLegendCharacters = 0;
    mChunkRows = std::max<unsigned long long>({mChunkRows, mLayout.mChunkRows, 1});
    mCompress = mCompress || !mLayout.mFilters.empty();
    ReportCacheSize();
  }
  if (!mExtents.empty()) {
    mExtents[0] = mRowsFlushed;
  }
}

void Dat::WriteCacheDetail(std::uint64_t rows,
                           const std::function<void(const Tables::OpenTable&)>& write) {
  const Vexa::ReportAs label("H5_ObjectDat");
  RequireFileExtents("Extents inconsistent");
  const std::vector<hsize_t> newDims = {mExtents[0] + rows, mExtents[1]};
  mTrace.Line(3, "H5_ObjectDat append ", rows, " row(s) to '", mName, "' (new dims {", newDims[0],
              ",", newDims[1], "})");
  Extend(newDims, "H5Dset_extent failed");
  const OnFailure putBack([this] { PutBack({mExtents[0], mExtents[1]}); });
  write(Table());
  mExtents[0] = newDims[0];
  mLayout.mRows = newDims[0];
}

void Dat::WriteManyStepsImmediately(const std::vector<double>& data) {
  WriteCache();
  // Every double counts as one row, which only makes sense in a table of one column.
  REQUIRE(data.empty() || mExtents[1]==1,
          "WriteManyStepsImmediately needs a dataset of one column\nName=" << mName);
  WriteManyStepsImmediately_(data.size(),
                             [&data](Tables::ColumnWriter& writer) { writer.Append(data); });
}

void Dat::WriteManyStepsImmediately_(std::uint64_t rows,
                                     const std::function<void(Tables::ColumnWriter&)>& fill) {
  const Vexa::InsideStore inside;
  WriteCache();
  mTrace.Line(4, "Dat WriteManyStepsImmediately ", mName);
  REQUIRE(IsObjectOpen(), "Consistency error: Called WriteManyStepsImmediately on a closed object");
  REQUIRE(mExtents.Size()==2, "Internal error");
  if (rows > 0) {
    WriteCacheDetail(rows, [&](const Tables::OpenTable& table) {
      Tables::ColumnWriter writer(table, mExtents[0], rows);
      fill(writer);
      writer.Finish();
    });
  }
}

void Dat::CutBack(std::uint64_t rows) {
  const Vexa::ReportAs label("H5_ObjectDat");
  REQUIRE(IsObjectOpen(), "Object must be open");
  if (rows < mExtents[0]) {
    Extend({rows, mExtents[1]}, "H5Dset_extent failed");
    mExtents[0] = rows;
    mLayout.mRows = rows;
  }
}

MyVector<unsigned long long> Dat::GetExtents() const {
  REQUIRE(AreAttributesKnown(), "Must call Initialize or OpenObject first");
  return {mExtents[0] + NTimeStepsCached(), mExtents[1]};
}

MyVector<std::string> Dat::GetLegend() const {
  REQUIRE(AreAttributesKnown(), "Must call Initialize or OpenObject first");
  return mLegends;
}

std::uint64_t Dat::NTimeStepsCached() const {
  return mCachedData.empty() ? 0 : mCachedData.size() / mNumberOfColumnsPerRow;
}

std::uint64_t Dat::SizeOfCache() const {
  return sizeof(double) * mCachedData.size() + (mExistsInFile ? 0 : mLegendCharacters);
}

std::ostream& Dat::Output(std::ostream& os, const std::string& indent) const {
  os << indent;
  if (AreAttributesKnown()) {
    os << "extents=" << mExtents;
  } else {
    os << (IsInitialized() ? "extents unknown" : "not initialized");
  }
  if (!mCachedData.empty()) {
    os << ", " << NTimeStepsCached() << " cached time-steps";
  }
  return os;
}

void Dat::RequireFileExtents(const char* message) const {
  const Vexa::ReportAs label("H5_ObjectDat");
  const std::vector<hsize_t> dims = ExtentsInFile();
  const std::size_t ndims = dims.size();
  REQUIRE(ndims==2, "Dimension mismatch.");
  REQUIRE(dims[0]==mExtents[0] && dims[1]==mExtents[1], message);
}

MyVector<double> Dat::RetrieveTimes() const {
  MyVector<double> times{MV::Size(mLayout.mRows)};
  RetrieveColumns_({0, 1, 0, times.size()}, times.data());
  return times;
}

void Dat::RequireReadable() const {
  const Vexa::ReportAs label("H5_ObjectDat");
  const Vexa::InsideStore inside;
  REQUIRE(IsObjectOpen(), "Object must be open");
  // A table without rows is read without its filters.
  if (mLayout.mRows > 0) {
    Tables::RequireKnownFilters(mLayout.mFilters, mName);
  }
}

MyVector<MyVector<double>> Dat::RetrieveData() const {
  REQUIRE(IsObjectOpen(), "Object must be open to retrieve data");
  RequireFileExtents("consistency error");
  const std::uint64_t columns = mLayout.mColumns;
  std::vector<double> values(mLayout.mRows * columns);
  RetrieveColumns_({0, columns, 0, mLayout.mRows}, values.data());
  MyVector<MyVector<double>> rows;
  rows.assign(MV::Size(mLayout.mRows), MV::Size(columns));
  for (std::uint64_t c = 0; c < columns; ++c) {
    for (std::uint64_t r = 0; r < mLayout.mRows; ++r) {
      rows[r][c] = values[c * mLayout.mRows + r];
    }
  }
  return rows;
}

MyVector<MyVector<double>> Dat::RetrieveColumns(const MyVector<int>& columns,
                                                unsigned long long first,
                                                unsigned long long one_past_last) const {
  REQUIRE(IsObjectOpen(), "Object must be open to retrieve data");
  REQUIRE(one_past_last <= GetExtents()[0],
          "Dat::RetrieveColumns called with one_past_last larger than\nextents.  one_past_last="
              << one_past_last << ", Extents=" << GetExtents()
              << ", SizeOfCache()=" << SizeOfCache());
  RequireFileExtents("consistency error");
  REQUIRE(one_past_last <= mExtents[0],
          "Dat::RetrieveColumns reads from the file only; rows from " << mExtents[0]
                                                                      << " on are still cached");
  REQUIRE(first <= one_past_last,
          "Dat::RetrieveColumns called with first=" << first << ", one_past_last="
          << one_past_last);
  const unsigned long long rows = one_past_last - first;
  MyVector<MyVector<double>> result;
  result.assign(MV::Size(columns.size()), MV::Size(rows));
  for (std::uint64_t j = 0; j < columns.size(); ++j) {
    REQUIRE(columns[j]>=0 && static_cast<unsigned long long>(columns[j])<mExtents[1],
            "Dat::RetrieveColumns called with column " << columns[j] << ", Extents=" << mExtents);
    RetrieveColumns_({static_cast<std::uint64_t>(columns[j]), 1, first, rows}, result[j].data());
  }
  return result;
}

void Dat::RetrieveColumns_(const Tables::ColumnBlock& block, double* values) const {
  const Vexa::ReportAs label("H5_ObjectDat");
  const Vexa::InsideStore inside;
  REQUIRE(IsObjectOpen(), "Object must be open to retrieve data");
  Tables::ReadColumns(Table(), block, values);
}

void Dat::RetrieveColumns_(const Tables::ColumnBlock& block, double* values,
                           Tables::PendingReads& reads) const {
  const Vexa::ReportAs label("H5_ObjectDat");
  const Vexa::InsideStore inside;
  REQUIRE(IsObjectOpen(), "Object must be open to retrieve data");
  Tables::StartReading(Table(), block, values, reads);
}

std::uint64_t Dat::CountReadableRows_(std::string& reason, std::uint64_t columns) const {
  const Vexa::ReportAs label("H5_ObjectDat");
  const Vexa::InsideStore inside;
  REQUIRE(IsObjectOpen(), "Object must be open to retrieve data");
  return Tables::CountReadableRows(Table(), columns, reason);
}

void Dat::RetrieveRuns_(std::uint64_t column, std::span<const Tables::RowRun> runs, double* values,
                        Tables::PendingReads& reads) const {
  const Vexa::ReportAs label("H5_ObjectDat");
  const Vexa::InsideStore inside;
  REQUIRE(IsObjectOpen(), "Object must be open to retrieve data");
  Tables::StartReading(Table(), column, runs, values, reads);
}

}  // namespace H5_Objects
