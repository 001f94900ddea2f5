#include "Executables/KelmorInfo/Show.hpp"

#include <algorithm>
#include <memory>
#include <numeric>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "Executables/KelmorInfo/InputFiles.hpp"
#include "Executables/KelmorInfo/JsonParts.hpp"
#include "Executables/KelmorInfo/ShowColumns.hpp"
#include "Executables/KelmorInfo/ShowPrinter.hpp"
#include "Executables/KelmorInfo/ShowSearch.hpp"
#include "Executables/KelmorInfo/ShowStep.hpp"
#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/KelmorInfo/UsageError.hpp"
#include "Executables/Series/Pieces.hpp"
#include "Executables/Series/TableSeries.hpp"
#include "Executables/Series/TdmSeries.hpp"
#include "Executables/Series/TextSeries.hpp"
#include "Executables/Series/VersionSeries.hpp"
#include "Utils/ErrorHandling/Require.hpp"

namespace {

using Format = ShowOptions::Format;
using H5_Objects::StepIndex;
using Tables::ColumnBlock;

// So many values are in memory at a time, unless chunks are much longer.
constexpr std::uint64_t sBlockValues = 2 * 1024 * 1024;
// Of so many values chunks are in memory besides as they are stored, unless one is longer.
constexpr std::uint64_t sValuesStored = 4 * 1024 * 1024;
// No chunk is inflated more often than that if the cache size allows it.
constexpr std::uint64_t sBlocksPerChunk = 4;

// Some columns of a table, of which some rows are in memory.
class Columns {
 public:
  Columns(SteppedSeries& series, const std::vector<std::uint64_t>& columns)
      : mSeries(series), mSorted(columns), mRow(columns.size()) {
    // Where columns are read together, a chunk of each is in memory as it is stored.
    const std::uint64_t chunk = std::max<std::uint64_t>(series.LongestChunk(), 1);
    mTogether =
        series.HasColumnsApart() ? std::max<std::uint64_t>(sValuesStored / chunk, 1) : ~0ULL;
    std::ranges::sort(mSorted);
    mSorted.erase(std::unique(mSorted.begin(), mSorted.end()), mSorted.end());
    for (const std::uint64_t column : columns) {
      const auto place = std::ranges::lower_bound(mSorted, column) - mSorted.begin();
      mPlaces.push_back(static_cast<std::uint64_t>(place));
    }
  }

  // The columns as they lie in memory: each is there once.
  std::uint64_t Count() const { return mSorted.size(); }

  void Read(const Tables::RowRun& rows) {
    mRows = rows.Size();
    mValues.resize(Count() * mRows);
    Tables::PendingReads reads;
    for (std::uint64_t first = 0; first < Count();) {
      std::uint64_t end = first + 1;
      while (end < Count() && end - first < mTogether && mSorted[end] == mSorted[end - 1] + 1) {
        ++end;
      }
      double* const values = mValues.data() + first * mRows;
      mSeries.Read({mSorted[first], end - first, rows.mFirst, mRows},
                   std::max(sBlockValues, mValues.size()), [&](const ColumnBlock& /*block*/) {
                     return Tables::ColumnWriter::Place{values, reads};
                   });
      reads.Finish();
      first = end;
    }
  }

  // A row of those that are in memory, in the order in which the columns were asked for.
  std::span<const double> Row(std::uint64_t row) {
    for (std::size_t c = 0; c < mPlaces.size(); ++c) {
      mRow[c] = mValues[mPlaces[c] * mRows + row];
    }
    return mRow;
  }

 private:
  SteppedSeries& mSeries;
  std::vector<std::uint64_t> mSorted;
  std::vector<std::uint64_t> mPlaces;  // among these, of each that was asked for
  std::uint64_t mTogether;             // so many columns are read at a time
  std::uint64_t mRows = 0;
  std::vector<double> mValues;
  std::vector<double> mRow;
};

// Prints a dataset.
class Shower {
 public:
  Shower(std::ostream& os, const ShowOptions& options, const JoinOptions& join,
         const Dataset& dataset)
      : mOs(os), mOptions(options), mJoin(join), mDataset(dataset), mDocument(NewDocument()) {
    mDocument["name"] = dataset.mName;
    mDocument["kind"] = dataset.mpKind->mExtension;
  }

  void Show(Series& series) {
    series.TakeInAll(Series::Depth::Times);
    if (auto* stepped = dynamic_cast<SteppedSeries*>(&series)) {
      stepped->Select(mJoin.mNoWipe);
      ShowSteps(*stepped);
      return;
    }
    const bool asksForSteps = mOptions.mAt.has_value() || mOptions.HasRange();
    RequireUsage(!asksForSteps,
                 mDataset.mName + " has no steps: -at, -from and -to mean nothing for it.");
    const bool asksForTable = !mOptions.mColumns.empty() || mOptions.mFormat == Format::CSV;
    RequireUsage(!asksForTable,
                 mDataset.mName + " is no table: -columns and -csv mean nothing for it.");
    if (const auto* text = dynamic_cast<TextSeries*>(&series)) {
      ShowText(text->Text());
    } else {
      ShowVersions(dynamic_cast<VersionSeries&>(series).VersionHistory());
    }
  }

 private:
  bool IsJson() const { return mOptions.mFormat == Format::JSON; }

  void ShowText(const std::string& text) {
    if (IsJson()) {
      mDocument["text"] = text;
      PrintJson(mOs, mDocument);
    } else {
      mOs << text;
    }
  }

  void ShowVersions(const H5_Objects::Version::History& history) {
    if (IsJson()) {
      mDocument["version"] = history.size();
      mDocument["history"] = HistoryAsJson(history);
      PrintJson(mOs, mDocument);
      return;
    }
    mOs << "version " << history.size() << '\n';
    AlignedLines lines({0});
    for (std::size_t i = 0; i < history.size(); ++i) {
      lines.Add({std::to_string(i + 1), Vexa::Printable(history[i].first),
                 Vexa::Printable(history[i].second)});
    }
    lines.Print(mOs, "  ");
  }

  void ShowSteps(SteppedSeries& series) {
    if (auto* table = dynamic_cast<TableSeries*>(&series)) {
      ShowTable(*table);
    } else {
      auto& indexed = dynamic_cast<IndexedSeries&>(series);
      const StepIndex index = indexed.KeptIndex();
      StepSearch search(mOptions, mDataset.mName);
      search.Look(0, index.mTimes);
      const std::vector<StepRun> found = search.Found();
      if (mOptions.mAt) {
        RequireUsage(mOptions.mColumns.empty(),
                     "-columns means nothing for one step of " + mDataset.mName);
        ShowStep(mOs, mOptions.mFormat, indexed, index, found.front().mFirst, mDocument);
      } else {
        ShowIndex(indexed, index, found);
      }
    }
  }

  void ShowTable(TableSeries& table) {
    const std::vector<std::uint64_t> chosen = ChooseColumns(table.Legend());
    Columns columns(table, chosen);
    const std::uint64_t most =
        std::max({std::uint64_t{1}, sBlockValues / columns.Count(),
                  std::min((table.LongestChunk() + sBlocksPerChunk - 1) / sBlocksPerChunk,
                           mJoin.mCacheSize / sizeof(double) / columns.Count())});
    const std::vector<StepRun> found = FindRows(table);
    const auto printer = MakePrinter(table.Legend(), chosen);
    for (const StepRun& run : found) {
      for (std::uint64_t first = run.mFirst; first < run.mOnePastLast; first += most) {
        const StepRun rows{first, std::min(first + most, run.mOnePastLast)};
        columns.Read(rows);
        for (std::uint64_t row = 0; row < rows.Size(); ++row) {
          printer->Print(columns.Row(row));
        }
      }
    }
    printer->Finish();
  }

  std::vector<StepRun> FindRows(TableSeries& table) const {
    if (!mOptions.mAt && !mOptions.HasRange()) {
      return {{0, table.KeptRows()}};
    }
    StepSearch search(mOptions, mDataset.mName);
    const auto readTimes = [&](const SteppedSeries::Room& room) {
      table.Read({0, 1, 0, table.KeptRows()}, sBlockValues, room);
    };
    ForEachPiece(readTimes, [&](const PieceOfRows& times) {
      search.Look(times.mWhere.mFirstRow, {times.mValues.get(), times.mWhere.mRows});
    });
    return search.Found();
  }

  // A row without its time would not tell which it is.
  std::vector<std::uint64_t> ChooseColumns(const MyVector<std::string>& names) const {
    std::vector<std::uint64_t> columns = FindColumns(mOptions.mColumns, names);
    if (mOptions.mAt && std::ranges::find(columns, 0U) == columns.end()) {
      columns.insert(columns.begin(), 0);
    }
    return columns;
  }

  std::unique_ptr<RowPrinter> MakePrinter(const MyVector<std::string>& names,
                                          const std::vector<std::uint64_t>& chosen) const {
    std::vector<std::string> chosenNames;
    for (const std::uint64_t column : chosen) {
      chosenNames.push_back(names[column]);
    }
    return RowPrinter::Make(mOptions.mFormat, mOs, chosenNames, mDocument);
  }

  // A list of steps: time, number of values, extents of the mesh.
  void ShowIndex(const IndexedSeries& series, const StepIndex& index,
                 const std::vector<StepRun>& found) const {
    MyVector<std::string> names = series.OutputIndexLegend();
    names[1] = "values";
    const std::vector<std::uint64_t> chosen = ChooseColumns(names);
    const auto printer = MakePrinter(names, chosen);
    std::vector<double> row(chosen.size());
    for (const StepRun& run : found) {
      for (std::uint64_t step = run.mFirst; step < run.mOnePastLast; ++step) {
        std::ranges::transform(chosen, row.begin(), [&](std::uint64_t column) {
          return column == 0   ? index.mTimes[step]
                 : column == 1 ? static_cast<double>(index.Values(step))
                               : index.mExtras[column - 2][step];
        });
        printer->Print(row);
      }
    }
    printer->Finish();
  }

  std::ostream& mOs;
  const ShowOptions& mOptions;
  const JoinOptions& mJoin;
  const Dataset& mDataset;
  Json mDocument;
};

// How many characters have to be changed, added or left out.
std::size_t Distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> distances(b.size() + 1);
  std::iota(distances.begin(), distances.end(), 0);
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(distances[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = distances[j + 1];
      distances[j + 1] = std::min({changed, diagonal + 1, distances[j] + 1});
    }
  }
  return distances.back();
}

// The names of the datasets, first those that end in the name or are within it, then those that are
// written most like it.
std::vector<std::string> NearestFirst(const std::string& name,
                                      const std::vector<Dataset>& datasets) {
  std::vector<std::tuple<bool, std::size_t, std::string>> names;
  for (const Dataset& dataset : datasets) {
    const bool isRelated = dataset.mName.ends_with(name) || dataset.mName.starts_with(name + '/');
    names.emplace_back(!isRelated, Distance(name, dataset.mName), dataset.mName);
  }
  std::ranges::sort(names);
  std::vector<std::string> sorted;
  for (const auto& [isOther, distance, other] : names) {
    sorted.push_back(other);
  }
  return sorted;
}

Dataset FindDataset(const Inputs& inputs, const std::string& name, const std::string& skip) {
  constexpr std::size_t mostNames = 10;
  const std::vector<Dataset> datasets = FindDatasets(inputs, skip);
  REQUIRE(!datasets.empty(), "The files have no datasets");
  const auto dataset = std::ranges::find(datasets, name, &Dataset::mName);
  const bool isThere = dataset != datasets.end();
  RequireUsage(isThere, "There is no dataset '" + name + "' in the files. There are: " +
                            ListNames(NearestFirst(name, datasets), mostNames));
  return *dataset;
}

}  // namespace

void Show(std::ostream& os, const ShowOptions& options, const JoinOptions& join) {
  const std::vector<InputFile> files = TryFiles(join.mInputs);
  RequireAllOpen(files);
  const bool isWhole = !options.mAt && !options.HasRange();
  Inputs inputs(join.mInputs, isWhole ? ReadAhead::Need::Parts : ReadAhead::Need::Times);
  const Dataset dataset = FindDataset(inputs, options.mName, join.mSkip);
  ReadAheadOf(inputs, {dataset});
  inputs.Ahead().Reach(0);
  Progress progress(false, 1, 0);
  const auto series = MakeSeries({inputs, join, progress}, dataset);
  inputs.KeepObjectsOpenDuring([&] { Shower(os, options, join, dataset).Show(*series); });
  RequireUnchanged(files, inputs);
}
