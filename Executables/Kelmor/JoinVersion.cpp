#include <iostream>

#include "Executables/Kelmor/Join.hpp"
#include "Executables/Series/Agreement.hpp"

void JoinVersion(JoinRun& run, const JoinTask& task) {
  const std::string& name = task.mName;
  for (const CachedH5File& file : run.mInputs.Files()) {
    RequireNoSimilarRecord(file, name);
  }
  VersionAgreement agreement(name);
  VisitAgreeing<H5_Objects::Version>(run.mInputs, task.mHolders, name, agreement,
                                     [](const H5_Objects::Version&) {});
  auto& ver = run.mOutput.GetObjectForWrite<H5_Objects::Version>(name);
  ver.Initialize(agreement.History());
  // Written at once, as everything is: if the output had to be opened again for it after it was
  // closed, a run killed in between would leave a file that looks whole and lacks this record.
  if (ver.SizeOfCache() > 0) {
    run.mOutput.WriteImmediately(name, [&ver] { ver.WriteCache(); });
  }
  if (run.mOptions.mVerbose) {
    std::cout << name << " writing version " << agreement.Number() << std::endl;
  }
}
