#include "Executables/Series/SeriesKinds.hpp"

#include <utility>

#include "Executables/Series/CoefSeries.hpp"
#include "Executables/Series/TableSeries.hpp"
#include "Executables/Series/TdmSeries.hpp"
#include "Executables/Series/TextSeries.hpp"
#include "Executables/Series/VersionSeries.hpp"
#include "Utils/Factory/EnableCreation.hpp"

namespace {

template <class SERIES>
SeriesKind Kind(const std::string& title, const std::string& farewell = "") {
  return {SERIES::Object::ClassID(), title, farewell,
          Factory::FunctionFor<typename SERIES::Object>(),
          [](const SeriesRun& run, const Dataset& dataset) -> std::unique_ptr<Series> {
            return std::make_unique<SERIES>(run, dataset);
          }};
}

}  // namespace

const std::vector<SeriesKind>& SeriesKinds() {
  // The list is local because it is asked for before main().
  static const std::vector<SeriesKind> kinds = {
      Kind<VersionSeries>("version records"),
      Kind<TableSeries>("tables"),
      Kind<CoefSeries>("sets of coefficients"),
      Kind<TdmSeries>("tensor series", "all Tdm sets joined and written"),
      Kind<TextSeries>("texts"),
  };
  return kinds;
}

std::vector<Dataset> FindDatasets(const Inputs& inputs, const std::string& skip) {
  const Entries found = FindEntries(inputs.Files(), "*", skip);
  std::vector<Dataset> datasets;
  for (const SeriesKind& kind : SeriesKinds()) {
    for (const auto& [name, files] : found) {
      if (name.ends_with("." + kind.mExtension)) {
        datasets.push_back({name, &kind, files});
      }
    }
  }
  return datasets;
}

void ReadAheadOf(Inputs& inputs, const std::vector<Dataset>& datasets) {
  if (!inputs.Ahead().NeedsPlan()) {
    return;
  }
  ReadAhead::Plan plan;
  for (const Dataset& dataset : datasets) {
    std::vector<ReadAhead::Place>& places = plan.emplace_back();
    for (const int file : dataset.mFiles) {
      const haddr_t address = inputs[file].AddressOf(dataset.mName);
      if (address != HADDR_UNDEF) {
        places.push_back({static_cast<std::size_t>(file), address});
      }
    }
  }
  inputs.Ahead().Follow(std::move(plan));
}

std::unique_ptr<Series> MakeSeries(const SeriesRun& run, const Dataset& dataset) {
  return dataset.mpKind->mMakeSeries(run, dataset);
}
