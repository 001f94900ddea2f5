#include "Executables/Series/TableSeries.hpp"

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/Formatting.hpp"
#include "Utils/Process/Printable.hpp"

using H5_Objects::Dat;

// The files must have the same number of columns.
bool TableSeries::Agrees(int file, const Dat& dat, Depth depth) {
  const auto columns = static_cast<int>(dat.GetExtents()[1]);
  if (mAgreement.Groups().empty()) {
    Ncols = columns;
    if (depth != Depth::Agreement) {
      REQUIRE(Ncols>0, "Dataset " << Name() << " has no columns");
    }
  }
  if (Ncols != columns) {
    mAgreement.Differ("Ncols==static_cast<int>(dat.GetExtents()[1])", VEXA_CURRENT_REPORT_LABEL,
                      "Dataset " + Vexa::Printable(Name()) +
                          " has different number of columns\nin different files.");
  }
  return mAgreement.Add(file, std::to_string(columns) + (columns == 1 ? " column" : " columns"));
}

void TableSeries::TakeIn(int file, Depth depth) {
  Visit<Dat>(file, [&](const Dat& dat) {
    const bool agrees = Agrees(file, dat, depth);
    if (mLegend.empty() || mLegend[0] == "undefined") {
      mLegend = dat.GetLegend();
    }
    if (!agrees || depth == Depth::Agreement) {
      return;
    }
    if (depth == Depth::TimesIfReadable) {
      dat.RequireReadable();
    }
    Note(file, dat, dat.GetLegend(), depth);
    Input input = ReadInput(file, dat, depth);
    TakeTimes(input, dat, depth);
    mInputs.push_back(std::move(input));
  });
}

std::uint64_t TableSeries::Bytes() const {
  return KeptRows() * static_cast<std::uint64_t>(Ncols) * sizeof(double);
}

std::string TableSeries::RowText(std::size_t i, std::uint64_t row) const {
  double time = HoldsTimes(i) ? mTimes[i][row] : 0;
  if (!HoldsTimes(i)) {
    mRun.mInputs.Visit<Dat>(mInputs[i].mFile, Name(), [&](const Dat& dat) {
      dat.RetrieveColumns_({0, 1, row, 1}, &time);
    });
  }
  return "step " + std::to_string(row) + " (t = " + RoundTrip(time) + ")";
}

std::string TableSeries::ColumnText(std::uint64_t column) const {
  return " in column " + std::to_string(column) + " (" + mLegend[column] + ")";
}

void TableSeries::Join(CachedH5File& output) {
  mRun.mInputs.KeepObjectsOpenDuring([&] { SteppedSeries::Join(output); });
}

void TableSeries::Write(CachedH5File& output) {
  const std::int64_t kept = Steps().mKept;
  auto& dat = output.GetObjectForWrite<Dat>(Name());
  dat.Initialize(mLegend, !mRun.mOptions.mNoGzip, kept);
  if (mView) {
    dat.SetVirtual(*mView);
    output.WriteImmediately(Name(), [] {});
    return;
  }
  // Written at once: the table is complete, and holding it serves nothing.
  output.WriteImmediately(Name(), [&] {
    dat.WriteManyStepsImmediately_(kept,
                                   [this](Tables::ColumnWriter& writer) { WriteRows(writer); });
  });
}

Series::Remains TableSeries::TakeInWhole(int file) {
  Remains remains;
  Visit<Dat>(file, [&](const Dat& dat) {
    Agrees(file, dat, Depth::Values);
    mLegend = dat.GetLegend();
    std::string reason;
    MyVector<double> times{MV::Size(dat.CountReadableRows_(reason))};
    dat.RetrieveColumns_({0, 1, 0, times.size()}, times.data());
    mTimes.push_back(std::move(times));
    mInputs.push_back(ReadInput(file, dat, Depth::Times));
    remains = RemainsOf(dat, reason);
  });
  return remains;
}

void TableSeries::Describe(int file, Facts& facts) {
  Visit<Dat>(file, [&facts](const Dat& dat) {
    facts.mShape = dat.ExtentsInFile();
    const MyVector<std::string> legend = dat.GetLegend();
    facts.mLegends.assign(legend.begin(), legend.end());
    facts.AddStorage(dat);
    facts.AddSegments(dat.Layout());
    if (dat.Layout().mpVirtual != nullptr) {
      facts.mSteps = dat.Layout().mRows;
      facts.mTimesElsewhere = dat.Layout().mpVirtual->mMappings;
    } else if (facts.mShape[1] > 0) {
      facts.SetTimes(dat.RetrieveTimes());
    }
  });
}
