// H5_Object is what a node of the tree holds: something stored under a name in an HDF5 file, which
// the tree can open, close, size, write and describe. Its kind follows from the extension of the
// name and is created through the class registry.
#pragma once

#include <hdf5.h>

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "Utils/Factory/EnableCreation.hpp"

#pragma GCC visibility push(default)

/// Objects are made closed, then opened and closed any number of times. What is appended waits in
/// memory, in open and closed objects alike, until WriteCache.
class H5_Object : public Factory::EnableCreation<H5_Object, const std::string&, bool, int> {
 public:
  H5_Object() = default;
  H5_Object(const H5_Object&) = delete;
  H5_Object& operator=(const H5_Object&) = delete;
  ~H5_Object() override = default;

  /// Opens the stored thing inside the group or file `parentId`, or creates it if it is new.
  virtual void OpenObject(hid_t parentId) = 0;
  /// Sets where the thing is known to be in that file, which saves looking up its name and opening
  /// the groups above it; HADDR_UNDEF if it is not known any more.
  virtual void SetAddress(haddr_t address) { mAddress = address; }
  virtual bool IsObjectOpen() const = 0;
  /// Whether the descriptive attributes (shape, legend, version) are in memory.
  virtual bool AreAttributesKnown() const = 0;
  /// Returns the bytes that are in memory and not yet in the file. Must be cheap.
  virtual std::uint64_t SizeOfCache() const = 0;
  virtual std::uint64_t NTimeStepsCached() const = 0;
  /// Time steps in the file when the object was last open; 0 for what has none.
  virtual std::uint64_t StepsInFile() const { return 0; }
  /// Writes what is held to the open object, and forgets it.
  virtual void WriteCache() = 0;
  /// Forgets what is held, after it could not be written.
  virtual void DropCache() = 0;
  /// Says that all that was written is in the file for good.
  virtual void Flushed() {}
  /// Says that the file is as it was when Flushed() was last called, so that the object may not be
  /// in it; or, if `isFileNew`, that it was made anew and the object is not in it.
  virtual void RolledBack(bool isFileNew) = 0;
  /// Holds again what the file needs but lost by that. Called before the next write.
  virtual void HoldAgain() {}
  /// Makes an open object that an earlier process wrote fit to be appended to. The node calls it
  /// once, when the object is first asked for to be written.
  virtual void PrepareToAppend() {}
  /// Releases the HDF5 identifiers; cache and attributes stay in memory.
  virtual void CloseObject() = 0;
  /// Forgets the identifiers, which are void because the library has ended.
  virtual void DropIds() = 0;
  /// Names what the open object has in the file besides what its kind writes, such as
  /// "attribute 'units'" or "member 'notes'". No join carries it over.
  virtual std::vector<std::string> ForeignParts() const = 0;
  /// Names what the open object lacks in the file of what its kind writes, though it can be read
  /// without.
  virtual std::vector<std::string> MissingParts() const { return {}; }
  /// Describes the object on one line, without a newline, for listings.
  virtual std::ostream& Output(std::ostream& os, const std::string& indent) const = 0;

  /// Sets what is called with every change of the bytes that the object holds for its file.
  using CacheListener = std::function<void(std::uint64_t before, std::uint64_t now)>;
  void SetCacheListener(CacheListener listener) { mListener = std::move(listener); }

 protected:
  /// Every operation that changes SizeOfCache() ends with this.
  void ReportCacheSize() {
    const std::uint64_t now = SizeOfCache();
    if (mListener != nullptr && now != mReportedCache) {
      mListener(std::exchange(mReportedCache, now), now);
    }
  }

  haddr_t mAddress = HADDR_UNDEF;  // set by SetAddress()

 private:
  CacheListener mListener;
  std::uint64_t mReportedCache = 0;
};

namespace Vexa {

/// Whether a destructor may end the process over an object left open or unwritten: not while
/// another failure is on its way, whose report would be lost.
bool MayCheckInDestructor();

/// Names the attributes of an open group or dataset but for `own`, as ForeignParts() does.
std::vector<std::string> ForeignAttributes(hid_t id, const std::string& own, int verbosity);

}  // namespace Vexa

#pragma GCC visibility pop
