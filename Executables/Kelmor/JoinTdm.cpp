#include <algorithm>
#include <iostream>

#include "Executables/Kelmor/JoinIndexed.hpp"
#include "Executables/Series/Agreement.hpp"
#include "Utils/Store/H5_ObjectTdm.hpp"

namespace {

using H5_Objects::Tdm;

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
  TensorAgreement agreement(task.mName);
  VisitAgreeing<Tdm>(run.mInputs, task.mHolders, task.mName, agreement,
                     [&](const Tdm& tdm) { inputs.ReadInput(tdm, tdm.RetrieveCheckedIndex_()); });
  inputs.Select();
  if (run.mOptions.mVerbose) {
    PrintSegments(run, inputs);
  }
  // A chunk of a mebibyte lets one step be read without inflating the whole series.
  const std::uint64_t longestChunk = 131072;
  const std::uint64_t dataChunk = std::min(inputs.KeptValues(), longestChunk);
  auto& tdm = run.mOutput.GetObjectForWrite<Tdm>(task.mName);
  tdm.Initialize(inputs.TimeDescription(), inputs.DataDescription(), *agreement.Structure(),
                 agreement.DataMeshDim(), !run.mOptions.mNoGzip, inputs.KeptSteps(), dataChunk);
  run.mOutput.WriteImmediately(task.mName, [&] { inputs.Write(tdm); });
}
