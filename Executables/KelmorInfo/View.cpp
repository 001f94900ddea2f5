#include "Executables/KelmorInfo/View.hpp"

#include <filesystem>
#include <system_error>
#include <vector>

#include "Executables/KelmorInfo/InputFiles.hpp"
#include "Executables/Series/Output.hpp"
#include "Executables/Series/Series.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"
#include "Utils/StringParsing/PathUtilities.hpp"

namespace {

namespace fs = std::filesystem;

// The real paths of the files as they are seen from the folder of the view, so that all of them can
// be moved together. The system follows links before it goes up, so both ends are real paths.
std::vector<std::string> NamesFrom(const std::string& folder, const Inputs& inputs) {
  std::vector<std::string> names;
  for (const CachedH5File& file : inputs.Files()) {
    names.push_back(fs::path(file.Filename()).lexically_relative(folder));
  }
  return names;
}

ViewResult WriteDatasets(const SeriesRun& run, const std::vector<Dataset>& datasets,
                         const std::vector<std::string>& inputNames, CachedH5File& output) {
  ViewResult result;
  for (const Dataset& dataset : datasets) {
    run.mProgress.Next("viewing " + dataset.mpKind->mTitle);
    const auto series = MakeSeries(run, dataset);
    series->MakeView(output, inputNames);
    TheCachedH5FileHolder().CheckForEmergencyWriteCache();
    ++result.mDatasets;
    result.mBytes += series->Bytes();
  }
  return result;
}

}  // namespace

ViewResult MakeView(const std::string& name, const JoinOptions& options) {
  const std::vector<InputFile> files = TryFiles(options.mInputs);
  RequireAllOpen(files);
  Inputs inputs(options.mInputs);
  const std::vector<Dataset> datasets = FindDatasets(inputs, options.mSkip);
  REQUIRE(!datasets.empty(), "The files have no datasets to refer to. Will not create " << name);
  ViewResult result;
  MakeOutput(name, "the view", [&](CachedH5File& view) {
    Progress progress(!options.mVerbose, datasets.size(), 0);
    const auto names = NamesFrom(GetDirectoryFromPath(view.Filename()), inputs);
    result = WriteDatasets({inputs, options, progress}, datasets, names, view);
    RequireUnchanged(files, inputs);
    inputs.Clear();
  });
  return result;
}

std::string PathFromView(const std::string& viewPath, const std::string& name) {
  std::error_code ignored;
  const bool isLink = fs::is_symlink(viewPath, ignored);
  const std::string folder = GetDirectoryFromPath(isLink ? Realpath(viewPath) : viewPath);
  return folder == "." ? name : (fs::path(folder) / name).string();
}
