#include <iostream>

#include "Executables/Kelmor/Join.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/H5/H5_ObjectVersion.hpp"

namespace {

// Fails if a file without the record has one under a name that the record's name, read as a glob,
// matches.
void RequireNoRecord(const CachedH5File& file, const std::string& name) {
  const ReportContext context(name, file.Filename());
  const MyVector<std::string> data_sets = file.GetNames(name, true);
  REQUIRE(data_sets.size()==0, "Version information '"
                                   << name << "' not found in all h5 files.\n"
                                   << "Cannot join h5 files with different versions\n");
}

}  // namespace

void JoinVersion(JoinRun& run, const JoinTask& task) {
  const std::string& name = task.mName;
  unsigned long version_number = 0;
  H5_Objects::Version::History version_history;
  bool isFirst = true;
  // A name without glob characters matches no other.
  if (name.find_first_of("*?|") != std::string::npos) {
    for (int file = 0; file < run.mInputs.Size(); ++file) {
      if (!run.mInputs[file].Exists(name)) {
        RequireNoRecord(run.mInputs[file], name);
      }
    }
  }
  for (const int file : task.mHolders) {
    run.mInputs.Visit<H5_Objects::Version>(file, name, [&](const H5_Objects::Version& ver) {
      if (isFirst) {
        version_number = ver.GetCurrentVersion();
        version_history = ver.RetrieveVersionHistory();
        isFirst = false;
        return;
      }
      REQUIRE(ver.GetCurrentVersion() == version_number,
              "Version mismatch '" << name << "': " << ver.GetCurrentVersion() << " "
                                   << version_number);
      REQUIRE(ver.RetrieveVersionHistory() == version_history,
              "Version mismatch '" << name << "' in history: " << ver.GetCurrentVersion() << " "
                                   << version_number);
    });
  }
  auto& ver = run.mOutput.GetObjectForWrite<H5_Objects::Version>(name);
  ver.Initialize(version_history);
  // Written at once, as everything is: if the output had to be opened again for it after it was
  // closed, a run killed in between would leave a file that looks whole and lacks this record.
  if (ver.SizeOfCache() > 0) {
    run.mOutput.WriteImmediately(name, [&ver] { ver.WriteCache(); });
  }
  if (run.mOptions.mVerbose) {
    std::cout << name << " writing version " << version_number << std::endl;
  }
}
