#include <algorithm>
#include <iostream>
#include <memory>

#include "Executables/Kelmor/JoinIndexed.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/H5/H5_ObjectTdm.hpp"

namespace {

using H5_Objects::Tdm;

// The shape that all inputs of a series share.
struct Shape {
  std::shared_ptr<const TensorStructure> mpStructure;
  int mDataMeshDim = 0;
};

void CheckShape(const Tdm& tdm, Shape& shape, const std::string& name) {
  const TensorStructure& structure = tdm.GetStructure();
  if (shape.mpStructure == nullptr) {
    shape = {FindTensorIndexTable(structure.Dim(), structure.Symmetry()), tdm.GetDataMeshDim()};
  }
  REQUIRE(structure==*shape.mpStructure, "Dataset " << name << " has different tensor structures\n"
                                                    << "in different files: " << structure
                                                    << "; before: " << *shape.mpStructure);
  REQUIRE(tdm.GetDataMeshDim()==shape.mDataMeshDim,
          "Dataset " << name << " has meshes of different dimensions\nin different files: "
                     << tdm.GetDataMeshDim() << "; before: " << shape.mDataMeshDim);
}

// Tells after which inputs a segment is full: when the kept values held so far exceed what fits in
// the cache, and after the last. The selection is told with the first segment.
void PrintSegments(const JoinRun& run, const IndexedInputs& inputs) {
  const std::uint64_t segmentLimit = run.mOptions.mCacheSize / 8;
  std::uint64_t held = 0;
  bool isFirst = true;
  for (std::size_t i = 0; i < inputs.Size(); ++i) {
    held += inputs.KeptValues(i);
    if (segmentLimit >= held && i + 1 < inputs.Size()) {
      continue;
    }
    std::cout << "    trigger output after " << i + 1 << " segments" << std::endl;
    if (isFirst) {
      inputs.ReportSelection();
    }
    isFirst = false;
    held = 0;
  }
}

}  // namespace

void JoinTdm(JoinRun& run, const JoinTask& task) {
  if (run.mOptions.mVerbose) {
    std::cout << "working on " << task.mName << std::endl;
  }
  IndexedInputs inputs(run, task);
  Shape shape;
  for (const int file : task.mHolders) {
    run.mInputs.Visit<Tdm>(file, task.mName, [&](const Tdm& tdm) {
      CheckShape(tdm, shape, task.mName);
      inputs.ReadInput(tdm, tdm.RetrieveCheckedIndex_());
    });
  }
  inputs.Select();
  if (run.mOptions.mVerbose) {
    PrintSegments(run, inputs);
  }
  // A chunk of a mebibyte lets one step be read without inflating the whole series.
  const std::uint64_t longestChunk = 131072;
  const std::uint64_t dataChunk = std::min(inputs.KeptValues(), longestChunk);
  auto& tdm = run.mOutput.GetObjectForWrite<Tdm>(task.mName);
  tdm.Initialize(inputs.TimeDescription(), inputs.DataDescription(), *shape.mpStructure,
                 shape.mDataMeshDim, !run.mOptions.mNoGzip, inputs.KeptSteps(), dataChunk);
  run.mOutput.WriteImmediately(task.mName, [&] { inputs.Write(tdm); });
}
