#include "Executables/KelmorInfo/ViewSegments.hpp"

#include <algorithm>
#include <cmath>
#include <map>

#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/KelmorInfo/View.hpp"
#include "Executables/Series/Inputs.hpp"
#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"

using H5_Objects::Dat;

namespace {

constexpr std::uint64_t sRowsTogether = 1024 * 1024;

// Rows of a segment that are rows of a dataset of the view.
struct MappedTimes {
  TimeRange* mpTimes;
  const Tables::Mapping* mpMapping;
};

void ReadTimes(const MappedTimes& mapped, Inputs& segment) {
  const Tables::Mapping& mapping = *mapped.mpMapping;
  segment.Visit<Dat>(0, mapping.mTable, [&](const Dat& dat) {
    const std::uint64_t rows = dat.Layout().mRows;
    std::vector<double> times;
    const std::uint64_t end = std::min(rows, mapping.mRows.mOnePastLast);
    for (std::uint64_t first = mapping.mRows.mFirst; first < end; first += times.size()) {
      times.resize(std::min(sRowsTogether, end - first));
      dat.RetrieveColumns_({0, 1, first, times.size()}, times.data());
      for (const double time : times) {
        if (!std::isnan(time)) {
          mapped.mpTimes->Include(time);
        }
      }
    }
    REQUIRE(rows>=mapping.mRows.mOnePastLast, mapping.mTable << " has " << Counted(rows, "row") << ", not "
                                                             << mapping.mRows.mOnePastLast);
  });
}

// Where one table cannot be read, the others still may; the first problem is told.
void ReadSegment(InputFile& segment, const std::vector<MappedTimes>& parts) {
  const Vexa_H5::MuteH5Errors mute;
  Inputs inputs({segment.mName});
  inputs.KeepObjectsOpenDuring([&] {
    for (const MappedTimes& part : parts) {
      try {
        ReadTimes(part, inputs);
      } catch (const CodeError& error) {
        segment.mProblem = segment.mOpens ? ReasonOf(error) : segment.mProblem;
        segment.mOpens = false;
        // Closes what the failure left open.
        inputs[0].CloseFile();
      }
    }
  });
}

}  // namespace

std::vector<InputFile> ReadSegments(const std::string& view, std::vector<Facts>& datasets) {
  std::map<std::string, std::vector<MappedTimes>> partsOfPaths;
  for (Facts& facts : datasets) {
    for (const std::string& name : facts.mSegments) {
      partsOfPaths[PathFromView(view, name)];
    }
    for (const Tables::Mapping& mapping : facts.mTimesElsewhere) {
      partsOfPaths[PathFromView(view, mapping.mFile)].push_back({&facts.mTimes, &mapping});
    }
  }
  std::vector<std::string> paths;
  for (const auto& [path, parts] : partsOfPaths) {
    paths.push_back(path);
  }
  std::vector<InputFile> segments = TryFiles(MyVector<std::string>(paths));
  for (InputFile& segment : segments) {
    if (segment.mOpens) {
      ReadSegment(segment, partsOfPaths.at(segment.mName));
    }
  }
  return segments;
}
