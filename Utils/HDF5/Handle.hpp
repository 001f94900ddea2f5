// Handle owns one HDF5 identifier for the length of a call. A failed close must be reported, so
// the normal path closes explicitly and checks the answer; the destructor only serves the path on
// which something else failed already, and ignores errors.
#pragma once

#include <hdf5.h>

#include <utility>

namespace Vexa_H5 {

template <herr_t (*CloseFunction)(hid_t)>
class Handle {
 public:
  Handle() = default;
  /// Takes over an identifier as the library returned it; a negative one is held but not closed.
  explicit Handle(hid_t id) : mId(id) {}
  Handle(Handle&& other) noexcept : mId(std::exchange(other.mId, -1)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(mId, other.mId);
    return *this;
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() {
    if (mId >= 0) {
      CloseFunction(mId);
    }
  }

  // A handle is passed where the library wants its identifier.
  operator hid_t() const { return mId; }  // NOLINT(google-explicit-constructor)

  /// Closes now and returns the library's answer; the handle is empty afterwards.
  herr_t Close() { return CloseFunction(std::exchange(mId, -1)); }
  /// Gives the identifier away without closing it.
  hid_t Release() { return std::exchange(mId, -1); }

 private:
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
