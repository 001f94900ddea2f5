#include <iostream>

#include "Executables/Kelmor/Join.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/H5/H5_ObjectTxt.hpp"

void JoinTxt(JoinRun& run, const JoinTask& task) {
  std::string text;
  for (const int file : task.mHolders) {
    run.mInputs.Visit<H5_Objects::Txt>(file, task.mName, [&text](H5_Objects::Txt& txt) {
      const std::string part = txt.RetrieveData();
      // Only arrays of characters can hold one; the output's strings end at it.
      REQUIRE(part.find('\0')==std::string::npos, "The text holds a null character");
      text += part;
    });
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
