#include "Utils/ErrorHandling/MyErr.hpp"

#include <iomanip>
#include <ios>
#include <new>
#include <sstream>
#include <string>

#include "Utils/ErrorHandling/ParallelRuntime.hpp"
#include "Utils/ErrorHandling/ProcID.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Process/RunInformation.hpp"

namespace {

std::string ErrorFile() {
  const ParallelRuntime& runtime = ParallelRuntime::Instance();
  std::ostringstream path;
  path << RunDirectory() << "/Errors" << std::setw(3) << std::setfill('0')
       << (runtime.IsInitialized() ? runtime.Rank() : 0) << ".txt";
  return path.str();
}

void (*sBeforeMyErr)() = nullptr;

}  // namespace

void SetBeforeMyErr(void (*function)()) {
  sBeforeMyErr = function;
}

void PrepareForErrors() {
  if (sBeforeMyErr != nullptr) {
    sBeforeMyErr();
  }
}

MyErrProxy::MyErrProxy() {
  try {
    mpFile = std::make_unique<std::ofstream>();
    // A pipe of that name would wait for a reader.
    if (const std::string path = ErrorFile(); !FileExists(path) || IsRegularFile(path)) {
      mpFile->open(path, std::ios::out | std::ios::app);
    }
  } catch (const std::bad_alloc&) {
    mpFile.reset();
  }
  // Reports can come from static initialisers that run before those of the standard streams.
  const std::ios_base::Init streams;
  PrepareForErrors();
  if (ParallelRuntime::Instance().IsInitialized()) {
    std::cerr << ProcID_();
  }
}
