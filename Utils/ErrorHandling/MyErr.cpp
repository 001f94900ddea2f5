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

// Reports are added to those of earlier runs. What has null characters is no text, though, but
// somebody's data under this name.
bool TakesReports(const std::string& path) {
  if (!FileExists(path)) {
    return true;
  }
  if (!IsRegularFile(path)) {
    return false;  // a pipe would wait for a reader
  }
  std::string beginning(65536, '\n');
  std::ifstream(path, std::ios::binary)
      .read(beginning.data(), static_cast<std::streamsize>(beginning.size()));
  return beginning.find('\0') == std::string::npos;
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
    if (const std::string path = ErrorFile(); TakesReports(path)) {
      mpFile->open(path, std::ios::out | std::ios::app);
    }
  } catch (const std::bad_alloc&) {
    mpFile.reset();
  }
  // Reports can come from static initialisers that run before those of the standard streams.
  const std::ios_base::Init streams;
  PrepareForErrors();
  if (ParallelRuntime::Instance().IsInitialized()) {
    const SigpipeHeldBack guard;
    std::cerr << ProcID_();
  }
}
