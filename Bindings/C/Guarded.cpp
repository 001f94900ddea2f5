#include "Bindings/C/Guarded.hpp"

#include <hdf5.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"
#include "Utils/Store/InsideStore.hpp"

namespace {

constinit std::atomic<bool> sHasEnded = false;

// The report that this thread is lent: the text, or a literal where there was no memory for one.
constinit thread_local const char* spShown = "";
constinit thread_local std::string* spText = nullptr;

// Takes the text along when its thread ends. The main thread does so before the process ends, when
// reports are still made.
struct TextOwner {
  ~TextOwner() {
    delete std::exchange(spText, nullptr);
    spShown = "";
  }
};

// The line about what is being worked on goes with the reason; the frame of a report on standard
// error and its backtrace do not.
std::string TextOf(const CodeError& error) {
  if (error.Reason().empty()) {
    return error.Message();
  }
  const bool needsBreak = !error.Context().empty() && !error.Reason().ends_with('\n');
  return error.Reason() + (needsBreak ? "\n" : "") + error.Context();
}

int Keep(const std::string& text) {
  static thread_local const TextOwner owner;
  if (spText == nullptr) {
    spText = new std::string;
  }
  *spText = text;
  spShown = spText->c_str();
  return VEXA_FAILED;
}

int KeepException() {
  try {
    throw;
  } catch (const CodeError& error) {
    return Keep(TextOf(error));
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::length_error&) {
    throw std::bad_alloc();  // more than any memory has was asked for
  } catch (const std::exception& error) {
    return Keep(error.what());
  } catch (...) {
    return Keep("An exception of an unknown type was thrown");
  }
}

template <class Work>
bool Reported(const Work& work) {
  try {
    work();
    return true;
  } catch (...) {
    Vexa::C::KeepReport();
    MyErr << "At the end of the process: " << vexa_last_error() << '\n';
    return false;
  }
}

// Returns the real path of an open file, or nothing if it has none any more.
std::string RealPath(hid_t file_id) {
  std::string name(static_cast<std::size_t>(std::max<ssize_t>(H5Fget_name(file_id, nullptr, 0), 0)),
                   0);
  H5Fget_name(file_id, name.data(), name.size() + 1);
  std::error_code ignored;
  return std::filesystem::canonical(name, ignored);
}

// A file that the program itself has left open is in the way of the rows that wait for it; HDF5
// would close it a little later.
void CloseWhatIsInTheWay() {
  const ssize_t count = H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_FILE);
  std::vector<hid_t> files(static_cast<std::size_t>(std::max<ssize_t>(count, 1)), -1);
  H5Fget_obj_ids(H5F_OBJ_ALL, H5F_OBJ_FILE, files.size(), files.data());
  for (const hid_t file_id : files) {
    if (H5Iis_valid(file_id) <= 0 || TheCachedH5FileHolder().CacheSize(RealPath(file_id)) == 0) {
      continue;
    }
    constexpr unsigned objects = H5F_OBJ_ALL & ~static_cast<unsigned>(H5F_OBJ_FILE);
    hid_t left = -1;
    while (H5Fget_obj_ids(file_id, objects | H5F_OBJ_LOCAL, 1, &left) > 0 &&
           H5Idec_ref(left) >= 0) {
    }
    H5Fclose(file_id);
  }
}

// What failed is not tried again by anybody: the files of the program's own come after this.
void WriteAtEnd() {
  sHasEnded = true;
  if (!Vexa::InsideStore::TakeForGood()) {
    return;
  }
  Reported([] { TheCachedH5FileHolder().WriteCache(); });
  Reported(CloseWhatIsInTheWay);
  if (!Reported([] { TheCachedH5FileHolder().PurgeCache(); })) {
    Reported([] { TheCachedH5FileHolder().GiveUp(); });
  }
}

}  // namespace

const char* vexa_last_error() {
  return spShown;
}

int Vexa::C::KeepReport() noexcept {
  try {
    return KeepException();
  } catch (...) {
    spShown = "There is not enough memory";
    return VEXA_NO_MEMORY;
  }
}

void Vexa::C::RequireRunning() {
  REQUIRE(!sHasEnded, "The process is ending, and all files have been written");
}

void Vexa::C::ArrangeEnd() {
  TheCachedH5FileHolder();  // made first, so that it is destroyed after what is arranged here
  [[maybe_unused]] static const int isArranged = std::atexit(WriteAtEnd);
}
