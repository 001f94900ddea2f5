#include "Executables/KelmorInfo/Facts.hpp"

#include <algorithm>
#include <cmath>

#include "Executables/KelmorInfo/Text.hpp"
#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/Store/H5_ObjectCoef.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"
#include "Utils/Store/H5_ObjectTdm.hpp"
#include "Utils/Store/H5_ObjectTxt.hpp"

namespace {

using namespace H5_Objects;

void TakeStorage(const DataSet& dataset, Facts& facts) {
  Tables::Storage storage = dataset.Storage();
  facts.mStoredBytes = Sum(facts.mStoredBytes, storage.mBytes);
  facts.mFilters = std::move(storage.mFilters);
}

void TakeTimes(const MyVector<double>& times, Facts& facts) {
  facts.mSteps = times.size();
  facts.mTimes = TimeRange::Of(times);
}

void Take(const Dat& dat, Facts& facts) {
  facts.mShape = dat.ExtentsInFile();
  const MyVector<std::string> legend = dat.GetLegend();
  facts.mLegends.assign(legend.begin(), legend.end());
  TakeStorage(dat, facts);
  if (facts.mShape[1] > 0) {
    TakeTimes(dat.RetrieveTimes(), facts);
  }
}

void Take(const IndexedGroup& set, Facts& facts) {
  facts.mShape = {set.Values().Layout().mRows};
  facts.mLegends = {set.GetTimeDescription(), set.GetDataDescription()};
  TakeStorage(set.Index(), facts);
  TakeStorage(set.Values(), facts);
  TakeTimes(set.RetrieveTimes(), facts);
}

void Take(const Tdm& tdm, Facts& facts) {
  const TensorStructure& structure = tdm.GetStructure();
  facts.mTensor = "dimension " + std::to_string(structure.Dim()) + ", symmetry '" +
                  structure.Symmetry() + "', mesh of dimension " +
                  std::to_string(tdm.GetDataMeshDim());
  Take(static_cast<const IndexedGroup&>(tdm), facts);
}

void Take(const Txt& txt, Facts& facts) {
  facts.mShape = txt.ExtentsInFile();
  TakeStorage(txt, facts);
}

void Take(const Version& ver, Facts& facts) {
  facts.mShape = ver.ExtentsInFile();
  TakeStorage(ver, facts);
  facts.mVersions = ver.RetrieveVersionHistory();
}

template <class KIND>
void Read(Inputs& inputs, int file, Facts& facts) {
  inputs.Visit<KIND>(file, facts.mName, [&facts](const KIND& object) { Take(object, facts); });
}

}  // namespace

std::optional<std::uint64_t> Sum(const std::optional<std::uint64_t>& a,
                                 const std::optional<std::uint64_t>& b) {
  return a && b ? std::optional(*a + *b) : std::nullopt;
}

std::optional<TimeRange> TimeRange::Of(const MyVector<double>& times) {
  std::optional<TimeRange> range;
  for (const double time : times) {
    if (std::isnan(time)) {
      continue;
    }
    if (!range) {
      range = {time, time};
    }
    range->Include({time, time});
  }
  return range;
}

void TimeRange::Include(const TimeRange& other) {
  mFirst = std::min(mFirst, other.mFirst);
  mLast = std::max(mLast, other.mLast);
}

std::string KindOf(const std::string& name) {
  return name.substr(name.rfind('.') + 1);
}

Facts ReadFacts(Inputs& inputs, int file, const std::string& name) {
  Facts facts;
  facts.mName = name;
  facts.mKind = KindOf(name);
  const auto read = facts.mKind == "dat"    ? Read<Dat>
                    : facts.mKind == "coef" ? Read<Coef>
                    : facts.mKind == "tdm"  ? Read<Tdm>
                    : facts.mKind == "txt"  ? Read<Txt>
                                            : Read<Version>;
  const Vexa_H5::MuteH5Errors mute;
  try {
    read(inputs, file, facts);
  } catch (const CodeError& error) {
    facts.mProblem = ReasonOf(error);
    // What the failure left open.
    inputs[file].CloseFile();
  }
  return facts;
}
