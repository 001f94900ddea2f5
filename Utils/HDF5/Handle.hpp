// Handle owns one HDF5 identifier for the length of a call, and closes it. A failed close is
// reported under the label of the caller: "H5Sclose failed". While an exception passes, which has
// its own report, errors are ignored.
#pragma once

#include <hdf5.h>

#include <exception>
#include <utility>

#include "Utils/ErrorHandling/RequireFail.hpp"
#include "Utils/ErrorHandling/Trace.hpp"

#pragma GCC visibility push(default)

namespace Vexa_H5 {

template <herr_t (*CloseFunction)(hid_t)>
class Handle {
 public:
  Handle() = default;
  /// Takes over an identifier as the library returned it; a negative one is kept but not closed.
  explicit Handle(hid_t id) : mId(id) {}
  Handle(Handle&& other) noexcept : mId(std::exchange(other.mId, -1)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(mId, other.mId);
    return *this;
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() noexcept(false) {
    if (mId >= 0 && std::uncaught_exceptions() > 0) {
      CloseFunction(mId);
    } else if (mId >= 0) {
      Close();
    }
  }

  // A handle is passed where the library wants its identifier.
  operator hid_t() const { return mId; }  // NOLINT(google-explicit-constructor)

  /// Closes before the end of the scope; the handle is empty afterwards. `condition` is what the
  /// report says was violated.
  void Close(const char* condition = "0==err") {
    RequireClosed(CloseFunction(std::exchange(mId, -1)), condition);
  }
  /// Closes likewise, and prints the trace line `call` at level 5.
  void Close(const Trace& trace, const char* call, const char* condition = "0==err") {
    RequireClosed(trace(5, CloseFunction(std::exchange(mId, -1)), call), condition);
  }
  /// Gives the identifier away without closing it.
  hid_t Release() { return std::exchange(mId, -1); }

 private:
  static void RequireClosed(herr_t err, const char* condition) {
    VEXA_REQUIRE_AS(VEXA_CALLERS_REPORT_LABEL, condition, err == 0, Name() << " failed");
  }
  static constexpr const char* Name() {
    return CloseFunction == H5Aclose   ? "H5Aclose"
           : CloseFunction == H5Dclose ? "H5Dclose"
           : CloseFunction == H5Fclose ? "H5Fclose"
           : CloseFunction == H5Gclose ? "H5Gclose"
           : CloseFunction == H5Oclose ? "H5Oclose"
           : CloseFunction == H5Pclose ? "H5Pclose"
           : CloseFunction == H5Sclose ? "H5Sclose"
           : CloseFunction == H5Tclose ? "H5Tclose"
                                       : "H5?close";
  }

  hid_t mId = -1;
};

using AttributeHandle = Handle<H5Aclose>;
using DataspaceHandle = Handle<H5Sclose>;
using DatasetHandle = Handle<H5Dclose>;
using DatatypeHandle = Handle<H5Tclose>;
using GroupHandle = Handle<H5Gclose>;
using PropertyListHandle = Handle<H5Pclose>;

/// Mutes the library's own error print while it lives; for probes that are expected to fail.
class MuteH5Errors {
 public:
  MuteH5Errors() {
    H5Eget_auto2(H5E_DEFAULT, &mPrint, &mpClientData);
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
  }
  ~MuteH5Errors() { H5Eset_auto2(H5E_DEFAULT, mPrint, mpClientData); }
  MuteH5Errors(const MuteH5Errors&) = delete;
  MuteH5Errors& operator=(const MuteH5Errors&) = delete;

  /// Prints the last failure after all, the way it would have been printed.
  void Print() const {
    if (mPrint != nullptr) {
      mPrint(H5E_DEFAULT, mpClientData);
    }
  }

 private:
  H5E_auto2_t mPrint = nullptr;
  void* mpClientData = nullptr;
};

}  // namespace Vexa_H5

#pragma GCC visibility pop
