#include <iostream>

#include "Executables/Kelmor/Join.hpp"
#include "Executables/Series/Agreement.hpp"
#include "Utils/Store/H5_ObjectTxt.hpp"

void JoinTxt(JoinRun& run, const JoinTask& task) {
  std::string text;
  for (const int file : task.mHolders) {
    run.mInputs.Visit<H5_Objects::Txt>(file, task.mName,
                                       [&text](H5_Objects::Txt& txt) { text += TextOf(txt); });
  }
  auto& txt = run.mOutput.GetObjectForWrite<H5_Objects::Txt>(task.mName);
  if (run.mOptions.mVerbose) {
    std::cout << task.mName << " writing " << text.size() << " characters." << std::endl;
  }
  if (!text.empty()) {
    txt << text;
    run.mOutput.WriteImmediately(task.mName, [&txt] { txt.WriteCache(); });
  }
}
