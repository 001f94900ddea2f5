// The file that reports are added to. Its name is known to everybody, and the folder may be one
// that others write to, so what has the name is looked at before anything is added.
#pragma once

#include <string>
#include <string_view>

#include "Utils/Process/Files.hpp"

#pragma GCC visibility push(default)

namespace Vexa {

/// The file is open for appending from its construction to its destruction, if it can be had: it
/// must be a regular file of this user with one name, and no HDF5 file. It is created if nothing
/// has the name. A symbolic link is not followed. What this process created is its own, whatever
/// owner a network file system shows.
class ErrorFile {
 public:
  ErrorFile();

  void Append(std::string_view text);

  /// Calls say(path, reason) if something did not get into the file; once per process.
  template <class Say>
  void IfFailed(const Say& say) const {
    if (mpReason != nullptr && IsFirstFailure()) {
      say(Path(), mpReason);
    }
  }

 private:
  static std::string Path();
  static bool IsFirstFailure();

  Descriptor mDescriptor;
  const char* mpReason = nullptr;  // why not all is in the file
};

}  // namespace Vexa

#pragma GCC visibility pop
