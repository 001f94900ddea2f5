#include "Utils/H5/H5_Library.hpp"

#include <hdf5.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <vector>

#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/ErrorHandling/SigpipeHeldBack.hpp"
#include "Utils/H5/Handle.hpp"

namespace {

hid_t sWatch = -1;  // a property list that is ours; the library closes it when it ends
unsigned long sLife = 1;
void (*sOnLibraryEnd)() = nullptr;
bool sEndsItself = false;
int sOpenFiles = 0;

H5E_auto2_t sPrintErrors = nullptr;
void* sPrintErrorsData = nullptr;

herr_t WatchClosed(hid_t, void*) {
  sWatch = -1;
  ++sLife;
  if (sOnLibraryEnd != nullptr) {
    sOnLibraryEnd();
  }
  return 0;
}

// The library reports an error before we do, and would end the process if nobody reads that.
herr_t PrintErrors(hid_t stack, void*) {
  const SigpipeHeldBack guard;
  return sPrintErrors(stack, sPrintErrorsData);
}

void StartWatching() {
  herr_t err = H5open();
  REQUIRE(err>=0, "H5open failed");
  const Handle<H5Pclose_class> class_id(
      H5Pcreate_class(H5P_ROOT, "Vexa", nullptr, nullptr, nullptr, nullptr, WatchClosed, nullptr));
  REQUIRE(class_id>=0, "H5Pcreate_class failed");
  sWatch = H5Pcreate(class_id);
  REQUIRE(sWatch>=0, "H5Pcreate failed");
  H5E_auto2_t print = nullptr;
  void* data = nullptr;
  err = H5Eget_auto2(H5E_DEFAULT, &print, &data);
  if (err >= 0 && print != nullptr && print != PrintErrors) {
    sPrintErrors = print;
    sPrintErrorsData = data;
    H5Eset_auto2(H5E_DEFAULT, PrintErrors, nullptr);
  }
}

// The files that are open, all of them the program's by now.
std::vector<hid_t> OpenFiles() {
  const ssize_t count = H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_FILE);
  std::vector<hid_t> files(static_cast<std::size_t>(std::max<ssize_t>(count, 0)), -1);
  if (!files.empty()) {
    H5Fget_obj_ids(H5F_OBJ_ALL, H5F_OBJ_FILE, files.size(), files.data());
  }
  return files;
}

// Whether the library may end after a failure: not if there is something that could fail on a full
// disk when the program's files are closed.
bool CanCloseFiles() {
  return std::ranges::all_of(OpenFiles(),
                             [](hid_t file) { return H5Fflush(file, H5F_SCOPE_GLOBAL) >= 0; });
}

void EndLibrary(int status, void*) {
  const bool hasFailed = MyAbortCalled_UncleanShutdown();
  const bool mayEnd = sOpenFiles == 0 && (!hasFailed || CanCloseFiles());
  // After a failure within it, the library does not end without a word, so it needs a reason.
  if (mayEnd && !sEndsItself && !(hasFailed && OpenFiles().empty())) {
    H5close();
  }
  if (!mayEnd && sEndsItself) {
    Vexa_H5::EndProcess(status);
  }
}

}  // namespace

unsigned long Vexa_H5::LibraryLife() {
  if (sWatch < 0) {
    StartWatching();
  }
  return sLife;
}

void Vexa_H5::SetOnLibraryEnd(void (*function)()) {
  sOnLibraryEnd = function;
}

void Vexa_H5::ArrangeLibraryEnd() {
  // Fails if the library runs.
  sEndsItself = H5dont_atexit() < 0;
  LibraryLife();
  on_exit(EndLibrary, nullptr);
}

void Vexa_H5::EndProcess(int status) {
  std::cout.flush();
  std::clog.flush();
  std::fflush(nullptr);
  _exit(status);
}

void Vexa_H5::CountOpenFiles(int change) {
  sOpenFiles += change;
}
