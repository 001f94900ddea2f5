#include "Utils/HDF5/Library.hpp"

#include <hdf5.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/ErrorHandling/SigpipeHeldBack.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/Process/Printable.hpp"

using namespace Vexa_H5;

namespace {

hid_t sWatch = -1;  // a property list that is ours; the library closes it when it ends
unsigned long sLife = 1;
void (*sOnLibraryEnd)() = nullptr;
bool sEndsItself = false;
int sOpenFiles = 0;

H5E_auto2_t sPrintErrors = nullptr;  // of the program's, if it has one
void* sPrintErrorsData = nullptr;

herr_t WatchClosed(hid_t, void*) {
  sWatch = -1;
  ++sLife;
  if (sOnLibraryEnd != nullptr) {
    sOnLibraryEnd();
  }
  return 0;
}

// The text that the library prints, in which a name cannot pass for a line.
std::string ErrorText(hid_t stack) {
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* memory = open_memstream(&text, &size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  H5Eprint2(stack, memory);
  std::fclose(memory);
  const std::unique_ptr<char, decltype(&std::free)> owner(text, &std::free);
  std::string printed(text == nullptr ? "" : text, size);
  for (const std::string& description : ErrorDescriptions(stack)) {
    std::string shown = Vexa::Printable(description);
    // The library's own line break, behind the time of an open that failed.
    if (const std::size_t own = shown.find("\\n, name = '"); own != shown.npos) {
      shown.replace(own, 2, "\n");
    }
    const std::size_t place = shown == description ? printed.npos : printed.find(description);
    if (place != printed.npos) {
      printed.replace(place, description.size(), shown);
    }
  }
  return Vexa::Printable(printed, Vexa::Breaks::Kept);
}

// The library reports an error before we do, and would end the process if nobody reads that.
herr_t PrintErrors(hid_t stack, void*) {
  Vexa::PrepareForErrors();
  const SigpipeHeldBack guard;
  if (sPrintErrors != nullptr) {
    return sPrintErrors(stack, sPrintErrorsData);
  }
  try {
    const std::string text = ErrorText(stack);
    return std::fputs(text.c_str(), stderr) < 0 ? -1 : 0;
  } catch (const std::bad_alloc&) {
    return H5Eprint2(stack, stderr);
  }
}

// Takes the place of the library's own print. A function of the program's is called all the same.
void InstallPrintErrors() {
  H5E_auto2_t print = nullptr;
  H5E_auto2_t ownPrint = nullptr;
  void* data = nullptr;
  void* ownData = nullptr;
  const Handle<H5Eclose_stack> new_id(H5Ecreate_stack());
  const bool areKnown = H5Eget_auto2(H5E_DEFAULT, &print, &data) >= 0 &&
                        H5Eget_auto2(new_id, &ownPrint, &ownData) >= 0;
  if (areKnown && print != nullptr && print != PrintErrors) {
    const bool isOwn = print == ownPrint && data == ownData;
    sPrintErrors = isOwn ? nullptr : print;
    sPrintErrorsData = data;
    H5Eset_auto2(H5E_DEFAULT, PrintErrors, nullptr);
  }
}

void StartWatching() {
  const herr_t err = H5open();
  REQUIRE(err>=0, "H5open failed");
  const Handle<H5Pclose_class> class_id(
      H5Pcreate_class(H5P_ROOT, "Vexa", nullptr, nullptr, nullptr, nullptr, WatchClosed, nullptr));
  REQUIRE(class_id>=0, "H5Pcreate_class failed");
  sWatch = H5Pcreate(class_id);
  REQUIRE(sWatch>=0, "H5Pcreate failed");
  InstallPrintErrors();
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
    EndProcess(status);
  }
}

}  // namespace

std::vector<std::string> Vexa_H5::ErrorDescriptions(hid_t stack) {
  std::vector<std::string> descriptions;
  const auto keep = [](unsigned, const H5E_error2_t* error, void* list) -> herr_t {
    try {
      static_cast<std::vector<std::string>*>(list)->emplace_back(
          error->desc == nullptr ? "" : error->desc);
    } catch (...) {
      return -1;  // an exception must not pass through the library
    }
    return 0;
  };
  H5Ewalk2(stack, H5E_WALK_UPWARD, keep, &descriptions);
  return descriptions;
}

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
