#include "Executables/Kelmor/JoinIndexed.hpp"
#include "Utils/Store/H5_ObjectCoef.hpp"

void JoinCoef(JoinRun& run, const JoinTask& task) {
  using H5_Objects::Coef;
  IndexedInputs inputs(run, task);
  for (const int file : task.mHolders) {
    run.mInputs.Visit<Coef>(
        file, task.mName, [&](const Coef& coef) { inputs.ReadInput(coef, coef.RetrieveIndex_()); });
  }
  inputs.Select();
  inputs.ReportSelection();
  auto& coef = run.mOutput.GetObjectForWrite<Coef>(task.mName);
  coef.Initialize(inputs.TimeDescription(), inputs.DataDescription(), !run.mOptions.mNoGzip,
                  inputs.KeptSteps(), inputs.KeptValues());
  run.mOutput.WriteImmediately(task.mName, [&] { inputs.Write(coef); });
}
