// What drivers of ours have in common: each stands on the library's own driver for POSIX files,
// whose locks, names and identity of files are theirs too.
#pragma once

#include <hdf5.h>

#if H5_VERSION_GE(1, 14, 0)
#include <H5FDdevelop.h>
#endif

#include <algorithm>
#include <cstddef>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/Library.hpp"

namespace Vexa_H5 {

/// A file of such a driver. Below is the file of the library's own driver, whose functions are
/// called past the library's interface: that would clear the stack of errors and print it twice.
///
/// A driver is a class that derives from this one. It has a name `sName` and a number `sValue`, a
/// static function Open() and the members End(), Read(), Write(), Flush() and Truncate(), which
/// take and return what the functions of an H5FD_class_t do, and Finish(), which writes what is
/// left before the file below is closed. Its name is its own: compilers give what is made of
/// members of two classes of one name, even of unnamed namespaces, one symbol.
class StackedFile : public H5FD_t {
 public:
  StackedFile(const StackedFile&) = delete;
  StackedFile& operator=(const StackedFile&) = delete;

  H5FD_t* Below() const { return mpBelow; }

 protected:
  explicit StackedFile(H5FD_t* below) : H5FD_t{}, mpBelow(below) {}
  ~StackedFile() = default;

  herr_t ReadBelow(H5FD_mem_t type, hid_t dxpl_id, haddr_t address, std::size_t size,
                   void* buffer) const {
    return mpBelow->cls->read(mpBelow, type, dxpl_id, address, size, buffer);
  }
  herr_t WriteBelow(H5FD_mem_t type, hid_t dxpl_id, haddr_t address, std::size_t size,
                    const void* buffer) const {
    return mpBelow->cls->write(mpBelow, type, dxpl_id, address, size, buffer);
  }

  // The end of the file on disk.
  haddr_t FileEnd() const { return mpBelow->cls->get_eof(mpBelow, H5FD_MEM_DEFAULT); }

  // Returns the descriptor of the file below, or -1 if it has none.
  int Descriptor() const {
    void* handle = nullptr;
    const herr_t err = mpBelow->cls->get_handle(mpBelow, H5P_DEFAULT, &handle);
    return err < 0 ? -1 : *static_cast<const int*>(handle);
  }

 private:
  H5FD_t* mpBelow;
};

/// Opens a file of the library's own driver, or returns null.
inline H5FD_t* OpenPosixFile(const char* name, unsigned flags, haddr_t maxAddress) {
  // The library prints its errors once more on the way up.
  const MuteH5Errors mute;
  static KeptId list;
  const hid_t below_id = list.Get([] {
    PropertyListHandle made(H5Pcreate(H5P_FILE_ACCESS));
    return made >= 0 && H5Pset_fapl_sec2(made) >= 0 ? made.Release() : -1;
  });
  return below_id < 0 ? nullptr : H5FDopen(name, flags, below_id, maxAddress);
}

inline H5FD_t* BelowOf(const H5FD_t* file) {
  return static_cast<const StackedFile*>(file)->Below();
}

/// Makes a function of a driver of a member of its File. No exception may pass through the library.
template <auto Member>
struct OfFile;

template <class File, class Result, class... Arguments, Result (File::*Member)(Arguments...)>
struct OfFile<Member> {
  template <class AnyFile>
  static Result Call(AnyFile* file, Arguments... arguments) {
    try {
      return (static_cast<File*>(const_cast<H5FD_t*>(file))->*Member)(arguments...);
    } catch (...) {
      return static_cast<Result>(-1);
    }
  }
};

/// Makes a function of a driver of the one that the library's own driver has.
template <auto Member>
struct Forwarded;

template <class Result, class AnyFile, class... Arguments,
          Result (*H5FD_class_t::*Member)(AnyFile*, Arguments...)>
struct Forwarded<Member> {
  static Result Call(AnyFile* file, Arguments... arguments) {
    H5FD_t* const below = BelowOf(file);
    return (below->cls->*Member)(below, arguments...);
  }
};

template <class File>
herr_t CloseStackedFile(H5FD_t* file) {
  const herr_t rest = OfFile<&File::Finish>::Call(file);
  // A call of the library's interface clears its stack of errors, which is put back.
  const hid_t errors_id = H5Eget_current_stack();
  const herr_t err = std::min(H5FDclose(BelowOf(file)), rest);
  delete static_cast<File*>(file);
  H5Eset_current_stack(errors_id);
  return err;
}

template <class File>
H5FD_class_t MakeStackedDriver() {
  H5FD_class_t driver{};
#ifdef H5FD_CLASS_VERSION
  driver.version = H5FD_CLASS_VERSION;
  driver.value = static_cast<H5FD_class_value_t>(H5_VFD_RESERVED + File::sValue);
#endif
  driver.name = File::sName;
  driver.maxaddr = (haddr_t{1} << 63) - 1;  // of an off_t
  driver.fc_degree = H5F_CLOSE_WEAK;
  driver.open = File::Open;
  driver.close = CloseStackedFile<File>;
  driver.cmp = [](const H5FD_t* a, const H5FD_t* b) {
    return BelowOf(a)->cls->cmp(BelowOf(a), BelowOf(b));
  };
  driver.query = [](const H5FD_t* file, unsigned long* flags) {
    return file == nullptr ? H5FDdriver_query(H5FD_SEC2, flags)
                           : BelowOf(file)->cls->query(BelowOf(file), flags);
  };
  driver.get_eoa = Forwarded<&H5FD_class_t::get_eoa>::Call;
  driver.set_eoa = Forwarded<&H5FD_class_t::set_eoa>::Call;
  driver.get_eof = OfFile<&File::End>::Call;
  driver.get_handle = Forwarded<&H5FD_class_t::get_handle>::Call;
  driver.read = OfFile<&File::Read>::Call;
  driver.write = OfFile<&File::Write>::Call;
  driver.flush = OfFile<&File::Flush>::Call;
  driver.truncate = OfFile<&File::Truncate>::Call;
  driver.lock = Forwarded<&H5FD_class_t::lock>::Call;
  driver.unlock = Forwarded<&H5FD_class_t::unlock>::Call;
  // Room that is given up is reused as under the driver below.
  const H5FD_mem_t map[] = H5FD_FLMAP_DICHOTOMY;
  std::ranges::copy(map, driver.fl_map);
  return driver;
}

/// Has files that are opened with this access property list go through the driver. Fails with
/// "H5Pset_driver failed".
template <class File>
void SetStackedDriver(hid_t fapl_id) {
  static const H5FD_class_t driver = MakeStackedDriver<File>();
  static KeptId registered;
  const hid_t driver_id = registered.Get([] { return H5FDregister(&driver); });
  REQUIRE(driver_id>=0, "H5FDregister failed");
  const herr_t err = H5Pset_driver(fapl_id, driver_id, nullptr);
  REQUIRE(err>=0, "H5Pset_driver failed");
}

}  // namespace Vexa_H5
