// Which kinds of datasets there are, and the datasets of a run.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Executables/Series/Inputs.hpp"
#include "Utils/Factory/FactoryBackbone.hpp"

class Series;
struct Dataset;
struct SeriesRun;

struct SeriesKind {
  std::string mExtension;           // of names, "dat"
  std::string mTitle;               // of many, "tables"
  std::string mFarewell;            // what a verbose join prints when all of them are written
  Factory::CreateFunction mCreate;  // makes the store's object
  std::unique_ptr<Series> (*mMakeSeries)(const SeriesRun& run, const Dataset& dataset);
};

/// All kinds, in the order in which they are joined.
const std::vector<SeriesKind>& SeriesKinds();

/// A dataset, and the files that hold it, ascending.
struct Dataset {
  std::string mName;
  const SeriesKind* mpKind;
  std::vector<int> mFiles;
};

/// The datasets that are not skipped, in the order in which they are joined.
std::vector<Dataset> FindDatasets(const Inputs& inputs, const std::string& skip);

/// Has the datasets read ahead of a run that comes to them in their order, and tells the inputs'
/// Ahead() when it does.
void ReadAheadOf(Inputs& inputs, const std::vector<Dataset>& datasets);

/// The dataset must live as long as its series.
std::unique_ptr<Series> MakeSeries(const SeriesRun& run, const Dataset& dataset);
