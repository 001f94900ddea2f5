#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Utils/ErrorHandling/FirstFailure.hpp"
#include "Utils/HDF5/Handle.hpp"

namespace Vexa {

/// Collects what goes wrong while a file's objects are written one after the other.
class FailedWrites {
 public:
  /// Takes a step of writing the object of that full name; returns whether it succeeded.
  template <class Step>
  bool Try(const std::string& name, Step&& step) {
    if (mFirst.Try(std::forward<Step>(step))) {
      return true;
    }
    Add(name);
    return false;
  }

  /// Says that the file itself failed, so that nothing more of this write can reach it.
  void SetHopeless() { mIsHopeless = true; }
  bool IsHopeless() const { return mIsHopeless; }
  bool IsEmpty() const { return mNames.empty(); }

  /// Throws the first failure, if there is one, and says before which other objects of the file
  /// failed.
  void Throw(const std::string& filename);

 private:
  void Add(const std::string& name);

  FirstFailure mFirst;
  std::vector<std::string> mNames;
  // From the first failure on later ones are muted, so that the library's errors are the first's.
  std::optional<Vexa_H5::MuteH5Errors> mMute;
  bool mIsHopeless = false;
};

}  // namespace Vexa
